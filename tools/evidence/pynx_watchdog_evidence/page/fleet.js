// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The page of a fleet: tables of the values of each dimension, such as the cause. The chosen values
// narrow all of the page; a table itself is narrowed by what is chosen in the others.

const AT_A_TIME = 100; // incidents in the list
const MOST_PRINTED = 1000;
const ROWS = 12; // of a table, until all are asked for
const MOST_ROWS = 2000;
const SPARK_WEEKS = 26;
const CHART_HEIGHT = 140; // pixels

const DIMENSIONS = ["cause", "application", "firmware", "version", "device", "week"];
const {incidents, values} = data;
const size = incidents.time.length;
const chosen = Object.fromEntries(DIMENSIONS.map(name => [name, new Set()]));
let words = "";
let matching = null; // for each incident, whether it has the words; null where there are none
let listed = []; // the numbers of the incidents that are shown
let firstListed = 0;

const COLUMNS = [
    {name: "value", title: name => name, of: row => row.value},
    {name: "incidents", of: row => row.incidents},
    {name: "devices", of: row => row.devices.size},
    {name: "first", of: row => row.first},
    {name: "last", of: row => row.last},
    {name: "newest", title: () => `newest ${count(data.trend, "week")}`, of: row => row.newest},
    {name: "before", title: () => `${data.trend} before`, of: row => row.before},
    {name: "trend", of: row => trend(row), order: row => row.newest - row.before},
];
const tables = Object.fromEntries(DIMENSIONS.map(name => [name, {
    name, all: false, sorted: name === "week" ? {column: "value", ascending: false}
        : {column: "incidents", ascending: false},
}]));

// -- what is chosen ------------------------------------------------------------------------------

const isChosen = (name, number) => !chosen[name].size || chosen[name].has(incidents[name][number]);

// The numbers of the incidents that are chosen in all dimensions but one.
function narrowed(except) {
    const among = DIMENSIONS.filter(name => name !== except && chosen[name].size);
    const found = [];
    for (let number = 0; number < size; ++number)
        if ((!matching || matching[number]) && among.every(name => isChosen(name, number)))
            found.push(number);
    return found;
}

function search() {
    const wanted = words.toLowerCase();
    const hits = Object.fromEntries([...DIMENSIONS, "source"].map(name =>
        [name, values[name].map(value => value.toLowerCase().includes(wanted))]));
    matching = wanted && incidents.text.map((text, number) => text.toLowerCase().includes(wanted) ||
        Object.entries(hits).some(([name, found]) => found[incidents[name][number]]));
}

function toggle(name, place) {
    if (!chosen[name].delete(place))
        chosen[name].add(place);
    location.hash = address();
}

function address() {
    const parts = new URLSearchParams();
    for (const name of DIMENSIONS)
        for (const place of chosen[name])
            parts.append(name, values[name][place]);
    if (words)
        parts.append("words", words);
    return parts.toString();
}

function followAddress() {
    const parts = new URLSearchParams(location.hash.slice(1));
    for (const name of DIMENSIONS)
        chosen[name] = new Set(parts.getAll(name).map(value => values[name].indexOf(value))
            .filter(place => place >= 0));
    words = parts.get("words") ?? "";
    if (byId("words").value !== words)
        byId("words").value = words;
    search();
    firstListed = 0;
    draw();
}

// -- tables --------------------------------------------------------------------------------------

const isRecent = week => week < data.weeks.length && week >= data.weeks.length - data.trend;
const isBefore = week => !isRecent(week) && week < data.weeks.length &&
    week >= data.weeks.length - 2 * data.trend;

function rowsOf(name, numbers) {
    const rows = new Map();
    for (const number of numbers) {
        const place = incidents[name][number];
        if (!rows.has(place))
            rows.set(place, {place, value: values[name][place], incidents: 0, devices: new Set(),
                first: "", last: "", newest: 0, before: 0, weeks: new Map()});
        const row = rows.get(place);
        const week = incidents.week[number];
        ++row.incidents;
        row.devices.add(incidents.device[number]);
        row.weeks.set(week, (row.weeks.get(week) ?? 0) + 1);
        row.newest += isRecent(week);
        row.before += isBefore(week);
    }
    for (const row of rows.values()) {
        const known = [...row.weeks.keys()].filter(week => week < data.weeks.length);
        row.first = data.weeks[known.reduce((one, other) => Math.min(one, other), Infinity)] ?? "";
        row.last = data.weeks[known.reduce((one, other) => Math.max(one, other), -1)] ?? "";
    }
    return [...rows.values()];
}

function trend({newest, before, incidents: total}) {
    if (newest === before)
        return newest ? "same" : "";
    if (!before)
        return newest === total ? "new" : "back";
    if (!newest)
        return "gone";
    const percent = Math.round((newest - before) / before * 100);
    return `${percent < 0 ? "−" : "+"}${Math.abs(percent)}%`;
}

function drawTable(table, numbers) {
    const columns = table.name === "week" ? COLUMNS.slice(0, 3) : COLUMNS;
    const by = columns.find(column => column.name === table.sorted.column);
    const order = by.order ?? by.of;
    const rows = rowsOf(table.name, numbers).sort((one, other) =>
        compare(order(one), order(other)) * (table.sorted.ascending ? 1 : -1) ||
        compare(one.value, other.value));
    const shown = rows.slice(0, table.all ? MOST_ROWS : ROWS);
    const heads = columns.map(column => makeHead(table, column));
    if (table.name !== "week")
        heads.push(make("th", {scope: "col"}, "by week"));
    table.body.replaceChildren(make("table", {},
        make("thead", {}, make("tr", {}, ...heads)),
        make("tbody", {}, ...shown.map(row => makeRow(table, columns, row)))));
    table.more.hidden = rows.length <= ROWS;
    table.more.textContent = table.all ? `Only ${ROWS}` : `All ${rows.length.toLocaleString("en")}`;
}

function makeHead(table, {name, title = () => name}) {
    const button = make("button", {type: "button"}, title(table.name));
    button.onclick = () => {
        const {column, ascending} = table.sorted;
        table.sorted = {column: name, ascending: column === name ? !ascending : name === "value"};
        draw();
        table.body.querySelector("[aria-sort] button").focus();
    };
    const head = make("th", {scope: "col", class: name === "value" ? "" : "figure"}, button);
    if (name === table.sorted.column)
        head.setAttribute("aria-sort", table.sorted.ascending ? "ascending" : "descending");
    return head;
}

function makeRow(table, columns, row) {
    const button = make("button", {type: "button", class: "choice",
        "aria-pressed": String(chosen[table.name].has(row.place))}, row.value);
    button.onclick = () => {
        toggle(table.name, row.place);
        focusOn = {table, value: row.value};
    };
    const cells = columns.slice(1).map(column => {
        const value = column.of(row);
        return make("td", {class: "figure"},
            typeof value === "number" ? value.toLocaleString("en") : value);
    });
    if (table.name !== "week")
        cells.push(make("td", {}, spark(row)));
    return make("tr", {}, make("td", {class: "value"}, button), ...cells);
}

let focusOn = null; // the value whose button gets the focus again when the tables are drawn anew

function keepFocus() {
    if (!focusOn)
        return;
    const {table, value} = focusOn;
    focusOn = null;
    [...table.body.querySelectorAll(".choice")].find(one => one.textContent === value)?.focus();
}

// -- bars ----------------------------------------------------------------------------------------

function bar(x, width, share, height, attributes) {
    const tall = share ? Math.max(share * height, 1) : 0;
    return makeSvg("rect", {x, width, y: height - tall, height: tall, ...attributes});
}

function spark(row) {
    const first = Math.max(data.weeks.length - SPARK_WEEKS, 0);
    const shown = data.weeks.slice(first).map((_, at) => row.weeks.get(first + at) ?? 0);
    const most = shown.reduce((one, other) => Math.max(one, other), 1);
    return makeSvg("svg", {class: "spark", width: shown.length * 4, height: 16,
        "aria-hidden": "true"},
    ...shown.map((number, at) => bar(at * 4, 3, number / most, 16, {})));
}

function byWeek(numbers) {
    const found = data.weeks.map(() => 0);
    for (const number of numbers)
        if (incidents.week[number] < found.length)
            ++found[incidents.week[number]];
    return found;
}

function drawWeeks(numbers) {
    const left = 50;
    const width = Math.max(byId("weeks").clientWidth - left, 1);
    const step = width / Math.max(data.weeks.length, 1);
    const found = byWeek(numbers);
    const most = found.reduce((one, other) => Math.max(one, other), 1);
    const labels = Math.ceil(70 / step); // weeks from one label to the next
    const parts = [];
    for (const share of [0, 0.5, 1]) {
        const y = 12 + (1 - share) * CHART_HEIGHT;
        parts.push(makeSvg("line", {class: "tick", x1: left, x2: left + width, y1: y, y2: y}),
            makeSvg("text", {class: "scale", x: left - 6, y: y + 4},
                Math.round(share * most).toLocaleString("en")));
    }
    data.weeks.forEach((week, at) => {
        const x = left + at * step;
        const isShown = !chosen.week.size || chosen.week.has(at);
        parts.push(makeSvg("g", {class: "week", "data-week": at, transform: "translate(0 12)"},
            makeSvg("title", {}, `${week}: ${count(found[at], "incident")}`),
            makeSvg("rect", {class: "reach", x, width: step, y: 0, height: CHART_HEIGHT}),
            bar(x, step * 0.8, found[at] / most, CHART_HEIGHT, {class: isShown ? "" : "pale"})));
        // Where the bars are narrow, a label begins at its bar, so that the first one has room.
        if (at % labels === 0 && (step >= 70 || x + 70 <= left + width))
            parts.push(makeSvg("text", {class: "tick", x: step < 70 ? x : x + step * 0.4,
                y: CHART_HEIGHT + 28, "text-anchor": step < 70 ? "start" : "middle"}, week));
    });
    byId("weeks").setAttribute("height", CHART_HEIGHT + 34);
    byId("weeks").replaceChildren(...parts);
}

// -- the list ------------------------------------------------------------------------------------

function drawList(most = AT_A_TIME) {
    const end = Math.min(firstListed + most, listed.length);
    byId("incident-rows").replaceChildren(...listed.slice(firstListed, end).map(number => {
        const source = values.source[incidents.source[number]];
        const line = incidents.line[number];
        return make("tr", {},
            make("td", {class: "time"},
                (incidents.time[number] ?? "time unknown").replace("T", " ")),
            make("td", {}, values.cause[incidents.cause[number]]),
            make("td", {}, values.device[incidents.device[number]]),
            make("td", {}, incidents.text[number]),
            make("td", {class: "where", title: source},
                source.split("/").slice(source.includes("!") ? -3 : -1).join("/") +
                (line ? `:${line}` : "")));
    }));
    byId("newer").disabled = firstListed === 0;
    byId("older").disabled = end === listed.length;
    byId("incidents-facts").textContent = listed.length > end - firstListed
        ? `${(firstListed + 1).toLocaleString("en")} to ${end.toLocaleString("en")} of ` +
          count(listed.length, "incident") : count(listed.length, "incident");
}

function turnList(by) {
    firstListed = Math.min(Math.max(firstListed + by, 0), Math.max(listed.length - 1, 0));
    drawList();
    byId("incidents").scrollTop = 0;
}

// -- the page ------------------------------------------------------------------------------------

function draw() {
    listed = narrowed();
    for (const table of Object.values(tables))
        drawTable(table, narrowed(table.name));
    drawWeeks(narrowed("week"));
    drawList();
    drawChosen();
    byId("found").textContent = `${count(listed.length, "incident")} on ` +
        count(new Set(listed.map(number => incidents.device[number])).size, "device");
    keepFocus();
}

function drawChosen() {
    const chips = DIMENSIONS.flatMap(name => [...chosen[name]].map(place => {
        const button = make("button", {type: "button", title: "Show others, too"},
            `${name}: ${values[name][place]} ✕`);
        button.onclick = () => toggle(name, place);
        return button;
    }));
    if (chips.length || words) {
        const all = make("button", {type: "button", id: "all"}, "Everything");
        all.onclick = () => {
            location.hash = "";
        };
        chips.push(all);
    }
    byId("chosen").replaceChildren(...chips);
    byId("chosen").hidden = !chips.length;
}

function makeTables() {
    byId("tables").replaceChildren(...DIMENSIONS.map(name => {
        const table = tables[name];
        const title = `By ${name}`;
        table.body = make("div", {class: "table", tabindex: 0, role: "region", "aria-label": title,
            id: `by-${name}`});
        table.more = make("button", {type: "button"});
        table.more.onclick = () => {
            table.all = !table.all;
            draw();
        };
        return make("section", {}, make("h2", {}, title), table.body, table.more);
    }));
}

function followSearch() {
    let due = 0;
    byId("words").oninput = () => {
        clearTimeout(due);
        due = setTimeout(() => {
            words = byId("words").value;
            history.replaceState(null, "", `#${address()}`);
            followAddress();
        }, 150);
    };
    byId("search").onsubmit = event => event.preventDefault();
}

byId("facts").textContent = `${data.headline}. Made at ` +
    `${data.made.replace("T", " ").replace("+00:00", " UTC")}.` + (data.found > size
    ? ` This page has only the newest ${count(size, "incident")}, and counts only these.` : "");
makeTables();
followSearch();
byId("newer").onclick = () => turnList(-AT_A_TIME);
byId("older").onclick = () => turnList(AT_A_TIME);
byId("weeks").onclick = event => {
    const week = event.target.closest("[data-week]")?.dataset.week;
    if (week !== undefined)
        toggle("week", Number(week));
};
followAddress();
new ResizeObserver(() => requestAnimationFrame(() => drawWeeks(narrowed("week"))))
    .observe(byId("weeks"));
addEventListener("hashchange", followAddress);
addEventListener("beforeprint", () => drawList(MOST_PRINTED));
addEventListener("afterprint", () => drawList());
byId("problem").hidden = true;
document.documentElement.dataset.ready = "";
