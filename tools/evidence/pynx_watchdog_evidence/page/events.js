// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The verdict, the list of events, and the tables of processes.

const AT_A_TIME = 300; // events in the list
const MOST_PRINTED = 5000;

const KINDS = {
    start: "start", end: "end", start_failed: "failed start", alarm: "alarm",
    not_found: "missing process", memory: "memory", request: "request", archive: "archive",
    snapshot: "snapshot", reboot: "reboot", message: "message",
};

// The events in the list, in the order of their times.
const inOrder = [...events.keys()].sort((one, other) =>
    (events[one].time ?? -Infinity) - (events[other].time ?? -Infinity) || one - other);
let listed = inOrder;
let firstListed = 0;
let currentEvent = null;

function showVerdict() {
    byId("verdict").replaceChildren(...data.verdict.map(({text, certainty, evidence, of}) => {
        const links = evidence.flatMap((number, place) => [
            " ", make("a", {href: `#e${number}`}, String(place + 1))]);
        if (of > evidence.length)
            links.push(` of ${of}`);
        return make("li", {class: certainty},
            make("span", {class: "certainty"}, certainty), " ", text,
            links.length ? make("span", {class: "evidence"}, " see events", ...links) : "");
    }));
    if (!data.verdict.length)
        byId("verdict").append(make("li", {}, "There is no verdict."));
    if (data.sentences > data.verdict.length)
        byId("verdict").append(make("li", {},
            `${count(data.sentences - data.verdict.length, "older sentence")} left out`));
}

// -- the list -----------------------------------------------------------------------------------

function listEvents(words = "") {
    const kind = byId("kind").value;
    const wanted = words.toLowerCase();
    listed = inOrder.filter(number => {
        const {kind: its, text, details} = events[number];
        return (!kind || its === kind) && (!wanted || text.toLowerCase().includes(wanted) ||
            Object.values(details).some(value => value.toLowerCase().includes(wanted)));
    });
    firstListed = 0;
    drawEvents();
}

function drawEvents(most = AT_A_TIME) {
    const end = Math.min(firstListed + most, listed.length);
    byId("event-rows").replaceChildren(...listed.slice(firstListed, end).map(makeEventRow));
    byId("events-back").disabled = firstListed === 0;
    byId("events-on").disabled = end === listed.length;
    byId("events-facts").textContent = listed.length > end - firstListed
        ? `${firstListed + 1} to ${end} of ${count(listed.length, "event")}`
        : count(listed.length, "event");
}

function makeEventRow(number) {
    const event = events[number];
    const row = make("tr", {"data-event": number, class: event.tone},
        make("td", {}, make("a", {href: `#e${number}`}, shortTimeText(event))),
        make("td", {}, event.text),
        make("td", {class: "where"}, whereLink(event)));
    if (number === currentEvent)
        row.setAttribute("aria-current", "true");
    return row;
}

// Without the date, if it is the same for all events.
function shortTimeText(event) {
    const isOneDay = dateText(whole.from) === dateText(whole.to);
    return eventTimeText(event).replace(isOneDay ? `${dateText(whole.from)} ` : "", "");
}

// A link to the event's line, where the page has it.
function whereLink(event) {
    const source = data.sources[event.source];
    const name = (event.line ? `line ${event.line}, ` : "") + source.split("/").at(-1);
    const one = logs.find(one => one.name === source);
    return one && event.line
        ? make("a", {href: `#l${one.number}:${event.line}`, title: source}, name)
        : make("span", {title: source}, name);
}

function showEvent(number) {
    currentEvent = number;
    if (!listed.includes(number)) {
        byId("kind").value = "";
        listEvents();
    }
    const place = listed.indexOf(number);
    if (place < firstListed || place >= firstListed + AT_A_TIME)
        firstListed = Math.max(place - AT_A_TIME / 3, 0);
    drawEvents();
    const row = byId("event-rows").querySelector("[aria-current]");
    const box = byId("events");
    const top = row.offsetTop - box.clientHeight / 3;
    if (row.offsetTop < box.scrollTop + 40 || row.offsetTop > box.scrollTop + box.clientHeight - 60)
        box.scrollTop = top;
    showDetails(number);
}

function showDetails(number) {
    const event = events[number];
    const facts = {kind: KINDS[event.kind] ?? event.kind, time: eventTimeText(event),
        source: data.sources[event.source] + (event.line ? `, line ${event.line}` : ""),
        ...event.details};
    byId("details").replaceChildren(make("h3", {}, event.text), make("dl", {},
        ...Object.entries(facts).flatMap(([name, value]) => [
            make("dt", {}, name.replaceAll("_", " ")), make("dd", {}, value)])));
    if (data.snapshots[number])
        showSnapshot(number);
}

function goToNeighbour(direction) {
    const timed = LANES.flatMap(lane => lane.marks)
        .sort((one, other) => one.time - other.time || one.number - other.number);
    let at = timed.findIndex(mark => mark.number === currentEvent);
    if (at < 0)
        at = countUpTo(timed, point ?? view.from, mark => mark.time) - (direction > 0 ? 1 : 0);
    const next = timed[at + direction];
    if (next)
        goTo(`#e${next.number}`);
}

function followEvents() {
    const kinds = [...new Set(events.map(event => event.kind))];
    byId("kind").replaceChildren(make("option", {value: ""}, "All kinds"), ...kinds.map(kind =>
        make("option", {value: kind}, KINDS[kind] ?? kind)));
    byId("kind").onchange = () => listEvents(byId("words").value);
    const turn = by => {
        firstListed = Math.min(Math.max(firstListed + by, 0), listed.length - 1);
        drawEvents();
        byId("events").scrollTop = 0;
    };
    byId("events-back").onclick = () => turn(-AT_A_TIME);
    byId("events-on").onclick = () => turn(AT_A_TIME);
    byId("event-rows").onclick = event => {
        const number = event.target.closest("[data-event]")?.dataset.event;
        if (number && getSelection().isCollapsed && !event.target.closest("a"))
            goTo(`#e${number}`, true);
    };
}

// -- snapshots ----------------------------------------------------------------------------------

let sorted = {column: "cpu", ascending: false};

function followSnapshots() {
    const numbers = Object.keys(data.snapshots);
    byId("snapshots-section").hidden = !numbers.length;
    byId("snapshot").replaceChildren(...numbers.map(number =>
        make("option", {value: number}, eventTimeText(events[number]))));
    byId("snapshot").onchange = event => goTo(`#e${event.target.value}`, true);
    if (numbers.length)
        showSnapshot(numbers.at(-1));
}

function showSnapshot(number) {
    const {columns, rows} = data.snapshots[number];
    byId("snapshot").value = String(number);
    byId("snapshot-facts").textContent = events[number].text;
    const heads = columns.map(column => {
        const button = make("button", {type: "button"}, column);
        button.onclick = () => {
            sorted = {column, ascending: sorted.column === column ? !sorted.ascending
                : column === "command" || column === "pid"};
            showSnapshot(number);
            byId("processes").querySelector("[aria-sort] button").focus();
        };
        const isFigure = rows.length && isNumber(rows[0][columns.indexOf(column)]);
        const head = make("th", {scope: "col", class: isFigure ? "figure" : ""}, button);
        if (column === sorted.column)
            head.setAttribute("aria-sort", sorted.ascending ? "ascending" : "descending");
        return head;
    });
    const place = columns.indexOf(sorted.column);
    const sortedRows = [...rows].sort((one, other) =>
        compare(one[place], other[place]) * (sorted.ascending ? 1 : -1));
    byId("processes").replaceChildren(make("table", {},
        make("thead", {}, make("tr", {}, ...heads)),
        make("tbody", {}, ...sortedRows.map(row => make("tr", {}, ...row.map(cell =>
            make("td", {class: isNumber(cell) ? "figure" : ""}, String(cell ?? ""))))))));
}
