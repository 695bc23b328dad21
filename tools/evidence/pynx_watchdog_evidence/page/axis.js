// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The time axis: which part of time is shown, and the lanes.

const LEFT = 76; // pixels for the names of the lanes and the scales of the curves
const RIGHT = 14;
const LANE = 26;
const TICKS = 22;
const TOGETHER = 9; // pixels; marks that are closer are drawn as one
const FAR_APART = 7 * 86400000;

const LANES = [
    {name: "Boots", bars: data.boots},
    {name: "Runs", bars: data.runs},
    {name: "Reports", kinds: ["request", "archive"]},
    {name: "Alarms", kinds: ["alarm", "not_found"]},
    {name: "Messages", kinds: ["end", "start_failed", "reboot", "message"]},
    {name: "Snapshots", kinds: ["snapshot"]},
].map(lane => ({...lane, marks: lane.kinds
    ? events.map((event, number) => ({...event, number}))
        .filter(event => event.time !== null && lane.kinds.includes(event.kind))
        .sort((one, other) => one.time - other.time)
    : []}));

const eventTimes = events.map(event => event.time).filter(time => time !== null)
    .sort((one, other) => one - other);
const whole = wholeTime();
const view = newestStretch();
let point = null; // the moment that is looked at
let redrawing = false;

function wholeTime() {
    const times = [...eventTimes,
        ...[...data.boots, ...data.runs].flatMap(([begin, end]) => [begin, end])];
    const from = times.reduce((one, other) => Math.min(one, other), Infinity);
    const to = times.reduce((one, other) => Math.max(one, other), -Infinity);
    return times.length ? withMargin(from, to) : {from: 0, to: 1000};
}

function withMargin(from, to) {
    const margin = Math.max((to - from) * 0.02, 500);
    return {from: from - margin, to: to + margin};
}

// Where a board without a clock has begun with a wrong time, the first view is what came after.
function newestStretch() {
    for (let i = eventTimes.length - 1; i > 0; --i)
        if (eventTimes[i] - eventTimes[i - 1] > FAR_APART)
            return withMargin(eventTimes[i], eventTimes.at(-1));
    return {...whole};
}

const width = () => Math.max(byId("axis").clientWidth - LEFT - RIGHT, 50);
const toPixels = time => LEFT + (time - view.from) / (view.to - view.from) * width();
const toTime = pixels => view.from + (pixels - LEFT) / width() * (view.to - view.from);

function show(from, to) {
    const length = Math.min(Math.max(to - from, 20), (whole.to - whole.from) * 1.2);
    const middle = Math.min(Math.max((from + to) / 2, whole.from), whole.to);
    view.from = middle - length / 2;
    view.to = middle + length / 2;
    redrawAxis();
}

function move(share) {
    const by = (view.to - view.from) * share;
    show(view.from + by, view.to + by);
}

function zoom(factor, around = (view.from + view.to) / 2) {
    show(around + (view.from - around) * factor, around + (view.to - around) * factor);
}

function bringIntoView(time) {
    const margin = (view.to - view.from) * 0.02;
    if (time < view.from + margin || time > view.to - margin)
        show(time - (view.to - view.from) / 2, time + (view.to - view.from) / 2);
}

function redrawAxis() {
    if (redrawing)
        return;
    redrawing = true;
    requestAnimationFrame(() => {
        redrawing = false;
        drawLanes();
        drawCurves();
        placeLine("point", point);
        byId("hover").hidden = true;
        const inView = countUpTo(eventTimes, view.to) - countUpTo(eventTimes, view.from - 1);
        byId("span").textContent = `${timeText(view.from)} – ${timeText(view.to)}, ` +
            `${durationText(view.to - view.from)}, ${inView.toLocaleString("en")} of ` +
            count(events.length, "event");
    });
}

function placeLine(id, time) {
    const x = time === null ? -1 : toPixels(time);
    byId(id).hidden = x < LEFT || x > LEFT + width();
    byId(id).style.left = `${x}px`;
}

// -- ticks --------------------------------------------------------------------------------------

const STEPS = [1, 2, 5, 10, 20, 50, 100, 200, 500, ...[1, 2, 5, 10, 15, 30].map(n => n * 1000),
    ...[1, 2, 5, 10, 15, 30].map(n => n * 60000), ...[1, 2, 3, 6, 12].map(n => n * 3600000),
    ...[1, 2, 7, 14, 30, 91, 365, 1826, 3652, 36525].map(n => n * 86400000)];

function tickStep() {
    const least = (view.to - view.from) / (width() / 95);
    return STEPS.find(step => step >= least) ?? STEPS.at(-1) * 10;
}

function ticks() {
    const step = tickStep();
    const found = [];
    for (let at = Math.ceil((view.from + shift) / step) * step; at <= view.to + shift; at += step)
        found.push(at - shift);
    return found;
}

function tickText(time) {
    const step = tickStep();
    if (step >= 86400000 || (time + shift) % 86400000 === 0)
        return dateText(time);
    return clockText(time).slice(0, step < 1000 ? 12 : step < 60000 ? 8 : 5);
}

// -- lanes --------------------------------------------------------------------------------------

function drawLanes() {
    const svg = byId("lanes");
    const height = LANES.length * LANE + TICKS;
    const full = LEFT + width() + RIGHT;
    svg.setAttribute("viewBox", `0 0 ${full} ${height}`);
    svg.setAttribute("height", height);
    const defs = makeSvg("defs", {},
        makeSvg("clipPath", {id: "inside"},
            makeSvg("rect", {x: LEFT, y: 0, width: width(), height})),
        makeSvg("pattern", {id: "hatch", width: 6, height: 6, patternUnits: "userSpaceOnUse",
            patternTransform: "rotate(45)"}, makeSvg("rect", {width: 2, height: 6})));
    const inside = makeSvg("g", {"clip-path": "url(#inside)"});
    svg.replaceChildren(defs);
    for (const time of ticks()) {
        const x = toPixels(time);
        svg.append(makeSvg("line", {class: "tick", x1: x, x2: x, y1: TICKS - 4, y2: height}),
            makeSvg("text", {class: "tick", x, y: 13}, tickText(time)));
    }
    LANES.forEach((lane, number) => {
        const y = TICKS + number * LANE;
        svg.append(makeSvg("line", {class: "lane", x1: 0, x2: full, y1: y, y2: y}),
            makeSvg("text", {class: "name", x: 4, y: y + 17}, lane.name));
        const group = makeSvg("g", {"data-lane": lane.name});
        const drawnTo = {};
        (lane.bars ?? []).forEach(bar => drawBar(group, y, bar, drawnTo));
        gathered(lane.marks).forEach(marks => drawMark(group, y, marks));
        inside.append(group);
    });
    svg.append(inside);
}

// `drawnTo` has for each tone how far it is drawn. A bar within that would not be seen.
function drawBar(group, y, [begin, end, text, tone, guess, event], drawnTo) {
    if (end < view.from || begin > view.to || toPixels(end) <= drawnTo[tone])
        return;
    // Far outside, a browser's coordinates are no longer exact.
    const x = Math.max(toPixels(begin), LEFT - 10);
    const length = Math.max(Math.min(toPixels(end), LEFT + width() + 10) - x, 3);
    drawnTo[tone] = x + length;
    const bar = makeSvg("g", {class: `item ${tone}`, "data-hash": `#e${event}`},
        makeSvg("title", {}, `${text}\n${timeText(begin)} – ${timeText(end)}, ` +
            durationText(end - begin) + (guess ? "\nThis is a guess." : "")),
        makeSvg("rect", {x, y: y + 4, width: length, height: LANE - 8, rx: 3}));
    bar.classList.toggle("guess", guess);
    if (guess)
        bar.append(makeSvg("rect", {x, y: y + 4, width: length, height: LANE - 8, class: "hatch"}));
    const room = Math.floor((length - 8) / 6.5);
    if (room > 6)
        bar.append(makeSvg("text", {x: Math.max(x, LEFT) + 5, y: y + 17},
            text.length > room ? `${text.slice(0, room - 1)}…` : text));
    group.append(bar);
}

// The marks that are in view, in groups of those that would cover each other.
function gathered(marks) {
    const groups = [];
    const first = countUpTo(marks, view.from - 1, mark => mark.time);
    for (let i = first; i < marks.length && marks[i].time <= view.to; ++i) {
        const group = groups.at(-1);
        if (group && toPixels(marks[i].time) - toPixels(group[0].time) < TOGETHER)
            group.push(marks[i]);
        else
            groups.push([marks[i]]);
    }
    return groups;
}

function drawMark(group, y, marks) {
    const x = toPixels(marks[0].time);
    const tone = ["bad", "warn", "plain"].find(one => marks.some(mark => mark.tone === one));
    const worst = marks.find(mark => mark.tone === tone);
    const lines = marks.slice(0, 8).map(mark => `${eventTimeText(mark)}  ${mark.text}`);
    if (marks.length > 8)
        lines.push(`and ${marks.length - 8} more; zoom in to see them`);
    const mark = makeSvg("g", {class: `item mark ${tone}`, "data-hash": `#e${worst.number}`},
        makeSvg("title", {}, lines.join("\n")),
        marks.length > 1
            ? makeSvg("rect", {x: x - 3, y: y + 5, width: TOGETHER, height: LANE - 10, rx: 2})
            : makeSvg("circle", {cx: x, cy: y + LANE / 2, r: 5}));
    group.append(mark);
}

// -- mouse, fingers and keys --------------------------------------------------------------------

const fingers = new Map(); // by the pointer's id, where each is
let touched = null; // what the first of them has touched, until it moves

const besideAxis = event => event.clientX - byId("axis").getBoundingClientRect().left;

function followPointers() {
    const axis = byId("axis");
    axis.addEventListener("pointerdown", event => {
        if (event.button || event.target.closest("label"))
            return;
        axis.setPointerCapture(event.pointerId);
        touched = fingers.size ? null : {x: besideAxis(event), hash:
            event.target.closest("[data-hash]")?.dataset.hash};
        fingers.set(event.pointerId, besideAxis(event));
    });
    axis.addEventListener("pointermove", event => {
        const x = besideAxis(event);
        if (!fingers.has(event.pointerId)) {
            placeLine("hover", toTime(x));
            showValues(toTime(x));
            return;
        }
        if (touched && Math.abs(x - touched.x) < 5)
            return;
        touched = null;
        const before = [...fingers.values()];
        fingers.set(event.pointerId, x);
        followDrag(before, [...fingers.values()]);
    });
    const lift = event => fingers.delete(event.pointerId);
    axis.addEventListener("pointerup", event => {
        if (fingers.has(event.pointerId) && touched)
            goTo(touched.hash ?? `#t${Math.round(toTime(touched.x))}`, true);
        lift(event);
    });
    axis.addEventListener("pointercancel", lift);
    axis.addEventListener("pointerleave", () => {
        byId("hover").hidden = true;
        showValues(point);
    });
    axis.addEventListener("wheel", event => {
        // Without a key the wheel scrolls the page, as everywhere.
        if (event.ctrlKey || event.metaKey)
            zoom(Math.exp(event.deltaY * (event.deltaMode ? 0.05 : 0.002)),
                toTime(besideAxis(event)));
        else if (event.deltaX || event.shiftKey)
            move((event.deltaX || event.deltaY) / width());
        else
            return;
        event.preventDefault();
    }, {passive: false});
    axis.addEventListener("dblclick", event => zoom(0.25, toTime(besideAxis(event))));
}

// The times under the fingers stay under them.
function followDrag(before, now) {
    const length = view.to - view.from;
    if (now.length === 1) {
        move((before[0] - now[0]) / width());
    } else {
        const factor = Math.abs(before[0] - before[1]) / Math.max(Math.abs(now[0] - now[1]), 10);
        const middle = toTime((before[0] + before[1]) / 2);
        const from = middle - ((now[0] + now[1]) / 2 - LEFT) / width() * length * factor;
        show(from, from + length * factor);
    }
}

function followKeys() {
    const actions = {
        ArrowLeft: () => move(-0.2), ArrowRight: () => move(0.2),
        "+": () => zoom(0.5), "=": () => zoom(0.5), "-": () => zoom(2),
        0: () => show(whole.from, whole.to),
        n: () => goToNeighbour(1), p: () => goToNeighbour(-1),
    };
    const otherMoment = share => goTo("#t" + Math.round(
        (point ?? (view.from + view.to) / 2) + (view.to - view.from) * share));
    byId("axis").addEventListener("keydown", event => {
        if (event.ctrlKey || event.altKey || event.metaKey || event.target !== event.currentTarget)
            return;
        if (event.shiftKey && event.key === "ArrowLeft")
            otherMoment(-0.01);
        else if (event.shiftKey && event.key === "ArrowRight")
            otherMoment(0.01);
        else if (actions[event.key])
            actions[event.key]();
        else
            return;
        event.preventDefault();
    });
    byId("earlier").onclick = actions.ArrowLeft;
    byId("later").onclick = actions.ArrowRight;
    byId("closer").onclick = actions["+"];
    byId("farther").onclick = actions["-"];
    byId("all").onclick = actions[0];
    byId("next").onclick = actions.n;
    byId("previous").onclick = actions.p;
}
