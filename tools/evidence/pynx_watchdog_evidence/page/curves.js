// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The curves of load and memory, drawn by uPlot on the time axis of the lanes.

const COLOURS = 8; // in page.css, as --curve-0 and so on

const charts = [
    {name: "load", unit: "%", reach: 3000, curves: data.load,
        title: "Load in percent of all processors, as recorded in alarms; dashed: the threshold"},
    {name: "memory", unit: "MiB", reach: 240000, curves: data.memory, title: "Memory in MiB"},
].filter(chart => chart.curves.length);

const colour = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

function makeCharts() {
    for (const chart of charts) {
        // A process and its threshold have one colour.
        const names = [...new Set(chart.curves.map(curve => curve.name))];
        const fields = chart.curves.map(curve => makeField(chart, curve,
            `--curve-${names.indexOf(curve.name) % COLOURS}`));
        const place = make("div", {class: "chart", "data-chart": chart.name});
        const legend = make("div", {class: "legend", role: "group", "aria-label": chart.title},
            ...fields.filter(field => field.curve.kind !== "threshold").map(field => field.label));
        byId("charts").append(make("h3", {}, chart.title), legend, place);
        chart.fields = fields;
        chart.plot = new uPlot(plotOptions(chart), plotData(chart), place);
        for (const {curve, box} of fields) {
            box.onchange = () => fields.forEach((field, number) => {
                if (field.curve.name === curve.name)
                    chart.plot.setSeries(number + 1, {show: box.checked});
            });
        }
    }
}

// The check box of a curve, which also shows the value at the time pointed at.
function makeField(chart, curve, colourName) {
    const box = make("input", {type: "checkbox"});
    box.checked = true;
    const swatch = makeSvg("svg", {width: 22, height: 10, "aria-hidden": "true"},
        makeSvg("line", {x1: 0, x2: 22, y1: 5, y2: 5, class: `swatch ${curve.kind}`}));
    swatch.style.stroke = `var(${colourName})`;
    const value = make("span", {class: "value"});
    const name = make("span", {class: "name", title: curve.name}, curve.name);
    return {curve, colourName, box, value, label: make("label", {}, box, swatch, name, value)};
}

function plotData(chart) {
    const tables = chart.curves.map(curve => [curve.times, curve.values]);
    // 2: a null is a gap, also where another curve has a point.
    return uPlot.join(tables, tables.map(() => [0, 2]));
}

function plotOptions(chart) {
    const line = {stroke: () => colour("--grid"), width: 1};
    const axis = {stroke: () => colour("--quiet"), grid: line, ticks: line, font: "11px system-ui"};
    return {
        width: LEFT + width() + RIGHT, height: 190, padding: [8, RIGHT, 0, 0],
        legend: {show: false}, cursor: {show: false}, select: {show: false},
        scales: {x: {time: false}, y: {range: (plot, low, high) => [0, (high || 1) * 1.05]}},
        axes: [
            {...axis, splits: ticks, values: (plot, times) => times.map(tickText)},
            {...axis, size: LEFT},
        ],
        series: [{}, ...chart.fields.map(plotSeries)],
    };
}

function plotSeries({curve, colourName}) {
    return {
        stroke: () => colour(colourName),
        width: {process: 2.5, memory: 2, thread: 1.2, threshold: 1.5}[curve.kind],
        dash: {threshold: [8, 5], thread: [2, 3]}[curve.kind],
        points: {size: curve.kind === "thread" ? 3 : 5, fill: () => colour(colourName),
            show: (plot, number, first, last) =>
                curve.kind !== "threshold" && last - first < width()},
    };
}

function drawCurves() {
    for (const {plot} of charts) {
        plot.setSize({width: LEFT + width() + RIGHT, height: 190});
        plot.setScale("x", {min: view.from, max: view.to});
    }
}

// Shows the values at a time, where there are any.
function showValues(time) {
    for (const {fields, unit, reach} of charts) {
        for (const {curve, value} of fields) {
            const at = countUpTo(curve.times, time ?? -Infinity) - 1;
            const found = at >= 0 && time - curve.times[at] < reach ? curve.values[at] : null;
            value.textContent = found === null ? "" : `${found.toFixed(1)} ${unit}`;
        }
    }
}
