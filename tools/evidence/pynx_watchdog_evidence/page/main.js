// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Puts the page together, and follows the address, which names the event, line or moment shown.

function showFacts() {
    byId("facts").textContent = `${count(events.length, "event")}` +
        (data.eventsFound > events.length
            ? ` of ${data.eventsFound.toLocaleString("en")}, a sample where they are many` : "") +
        (Number.isFinite(whole.from) && events.some(event => event.time !== null)
            ? `, ${timeText(whole.from).slice(0, -4)} to ${timeText(whole.to).slice(0, -4)}` : "") +
        `. Made at ${data.made.replace("T", " ").replace("+00:00", " UTC")}.` +
        (data.offset === null ? " The offset of the local times from UTC is not known." : "") +
        (data.complaints.length ? " Not all could be read: see the end of the page." : "");
    byId("sources").replaceChildren(
        ...[...data.sources, ...data.complaints].map(text => make("li", {}, text)));
    byId("sources").parentElement.open = data.complaints.length > 0;
}

function followZone() {
    const local = data.offset === null ? "local time, as written"
        : `local time of the device (${zoneName(data.offset)})`;
    byId("zone").replaceChildren(make("option", {value: data.offset ?? 0}, local));
    if (data.offset)
        byId("zone").append(make("option", {value: 0}, "UTC"));
    byId("zone").onchange = event => {
        shift = Number(event.target.value) * 60000;
        showFacts();
        redrawAxis();
        drawEvents();
        followSnapshots();
        followAddress();
    };
}

function showMoment(time, text) {
    point = time;
    byId("pointed").textContent = `Looking at: ${text}`;
    if (time !== null)
        bringIntoView(time);
    showValues(point);
    redrawAxis();
}

function followAddress() {
    const [, kind, first, line] = /^#([etl])(-?\d+)(?::(\d+))?$/.exec(location.hash) ?? [];
    if (kind === "e" && events[first]) {
        const event = events[first];
        const one = logs.find(one => one.name === data.sources[event.source]);
        showEvent(Number(first));
        if (one && event.line)
            showLine(one, event.line);
        else if (event.time !== null)
            showLogAt(event.time);
        showMoment(event.time, `${eventTimeText(event)}, ${event.text}`);
    } else if (kind === "t" && Math.abs(first) < 1e14) {
        showLogAt(Number(first));
        showMoment(Number(first), timeText(Number(first)));
    } else if (kind === "l" && logs[first]?.rows && line) {
        const one = logs[first];
        const known = timeOfLine(one, Number(line));
        showLine(one, Number(line));
        showMoment(known?.time ?? null, `line ${line} of ${one.name}, ` + (known
            ? (known.after ? "at or after " : "") + timeText(known.time) : "time unknown"));
    }
}

function showLogAt(time) {
    const one = logOfTime(time);
    if (one?.rows)
        showLine(one, lineOfTime(one, time));
}

function followSearch() {
    let due = 0;
    const start = () => {
        search(byId("words").value);
        listEvents(byId("words").value);
        byId("found").textContent = query
            ? `${count(found.length, "line")}, ${count(listed.length, "event")}` : "";
    };
    const turn = direction => {
        if (due) {
            clearTimeout(due);
            due = 0;
            start();
        }
        const at = goToFound(direction);
        if (at !== undefined)
            byId("found").textContent = `line ${at + 1} of ${found.length.toLocaleString("en")}, ` +
                count(listed.length, "event");
    };
    byId("words").oninput = () => {
        clearTimeout(due);
        due = setTimeout(() => {
            due = 0;
            start();
        }, 150);
    };
    byId("search").onsubmit = event => {
        event.preventDefault();
        turn(1);
    };
    byId("find-previous").onclick = () => turn(-1);
}

showFacts();
followZone();
showVerdict();
followEvents();
drawEvents();
followSnapshots();
makeCharts();
followPointers();
followKeys();
followLogKeys();
followSearch();
byId("log-name").replaceChildren(...logs.map(one =>
    make("option", {value: one.number}, one.name)));
byId("log-section").hidden = !logs.length;
redrawAxis();
await readLogs(); // takes longest, so all else is there before
if (logs.length)
    showLog(logs[0]);
new ResizeObserver(redrawAxis).observe(byId("axis"));
// In the next frame, because Firefox takes a change of sizes by an observer for an error.
new ResizeObserver(() => requestAnimationFrame(() => log && drawRows())).observe(byId("log"));
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redrawAxis);
addEventListener("beforeprint", () => drawEvents(MOST_PRINTED));
addEventListener("afterprint", () => drawEvents());
addEventListener("hashchange", followAddress);
followAddress();
byId("problem").hidden = true;
document.documentElement.dataset.ready = "";
