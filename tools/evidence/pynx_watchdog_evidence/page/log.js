// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The texts of the logs. Only the lines that are in view are in the document.

const LINE = 18; // pixels, as in page.css
const TALLEST = 8000000; // pixels; browsers draw no much taller element
const LONGEST_LINE = 4000; // characters that are shown
const MOST_FOUND = 100000;

const logs = data.logs.map((log, number) => ({...log, number, rows: 0, text: "", starts: []}));
let log = null; // the one that is shown
let firstRow = 0; // the first row in view
let currentLine = 0;
let query = null; // what is searched, as a regular expression
let found = []; // lines, as pairs of the number of the log and the number of the line in its text

async function readLogs() {
    await Promise.all(logs.map(async one => {
        one.text = await unpack(`log-${one.number}`);
        one.starts = lineStarts(one.text);
        one.events = new Map(events.map((event, at) => [event, at])
            .filter(([event]) => data.sources[event.source] === one.name)
            .map(([event, at]) => [event.line, at]));
        placePieces(one);
    }));
}

function lineStarts(text) {
    let starts = new Uint32Array(1 << 16);
    let size = 0;
    for (let at = 0; at < text.length;) {
        if (size === starts.length) {
            const more = new Uint32Array(size * 2);
            more.set(starts);
            starts = more;
        }
        starts[size++] = at;
        const end = text.indexOf("\n", at);
        at = end < 0 ? text.length : end + 1;
    }
    return starts.subarray(0, size);
}

// A log that is not here as a whole has a row for each gap between its pieces.
function placePieces(one) {
    let next = 1;
    let index = 0;
    one.placed = [];
    for (const [first, lines] of one.pieces) {
        if (first > next)
            one.placed.push({row: one.rows++, first: next, lines: first - next, gap: true});
        one.placed.push({row: one.rows, first, lines, index});
        one.rows += lines;
        index += lines;
        next = first + lines;
    }
    if (next <= one.lines)
        one.placed.push({row: one.rows++, first: next, lines: one.lines - next + 1, gap: true});
}

const pieceOfRow = (one, row) => one.placed[countUpTo(one.placed, row, piece => piece.row) - 1];

function rowOfLine(one, line) {
    const piece = one.placed[Math.max(countUpTo(one.placed, line, piece => piece.first) - 1, 0)];
    return piece.gap ? piece.row : piece.row + Math.min(line - piece.first, piece.lines - 1);
}

function lineOfRow(one, row) {
    const piece = pieceOfRow(one, row);
    return piece.gap ? piece.first : piece.first + row - piece.row;
}

function lineOfIndex(one, index) {
    const pieces = one.placed.filter(piece => !piece.gap);
    const piece = pieces[countUpTo(pieces, index, piece => piece.index) - 1];
    return piece.first + index - piece.index;
}

function lineText(one, index) {
    return one.text.slice(one.starts[index], one.starts[index + 1]).replace(/\n$/, "");
}

// -- times of lines -----------------------------------------------------------------------------

// A line's time is that of the last line before it, or itself, whose time is known.
function timeOfLine(one, line) {
    const at = countUpTo(one.marks, line, mark => mark[0]) - 1;
    return at < 0 ? null : {time: one.marks[at][1], after: one.marks[at][0] !== line};
}

function lineOfTime(one, time) {
    const at = countUpTo(one.marks, time, mark => mark[1]) - 1;
    return one.marks[Math.max(at, 0)][0];
}

// The log that tells most of a moment: the one that is shown, if the moment is within it.
function logOfTime(time) {
    const timed = [log, ...logs].filter(one => one?.marks.length);
    const begun = timed.filter(one => one.marks[0][1] <= time);
    return begun.find(one => time <= one.marks.at(-1)[1]) ??
        begun.sort((one, other) => other.marks.at(-1)[1] - one.marks.at(-1)[1])[0] ?? timed[0];
}

// -- what is in view ----------------------------------------------------------------------------

const rowsInView = () => Math.ceil(byId("log").clientHeight / LINE);
const tall = () => Math.min(log.rows * LINE, TALLEST);
const lastTop = () => Math.max(log.rows - Math.floor(byId("log").clientHeight / LINE), 0);

function showLog(one) {
    log = one;
    byId("log-name").value = String(one.number);
    byId("log-facts").textContent = one.keptSize === one.size
        ? count(one.lines, "line")
        : `${sizeText(one.keptSize)} of ${sizeText(one.size)}: the log is too large for a page. ` +
          "Its lines around events are here, and samples of the rest.";
    byId("log-space").style.height = `${tall()}px`;
    currentLine = 0;
    scrollToRow(0);
}

const sizeText = bytes => `${(bytes / 1048576).toFixed(1)} MiB`;

function scrollToRow(row) {
    firstRow = Math.min(Math.max(row, 0), lastTop());
    const room = tall() - byId("log").clientHeight;
    byId("log").scrollTop = lastTop() ? firstRow / lastTop() * room : 0;
    drawRows();
}

function followScroll() {
    const room = tall() - byId("log").clientHeight;
    const row = room > 0 ? byId("log").scrollTop / room * lastTop() : 0;
    // The element's own position is less exact than the row that was asked for.
    if (Math.abs(row - firstRow) > Math.max(1, 2 * lastTop() / Math.max(room, 1)))
        firstRow = Math.floor(row);
    drawRows();
}

function drawRows() {
    const rows = [];
    const end = Math.min(firstRow + rowsInView() + 1, log.rows);
    for (let row = Math.floor(firstRow); row < end; ++row)
        rows.push(makeRow(row));
    byId("log-rows").style.top = `${byId("log").scrollTop}px`;
    byId("log-rows").replaceChildren(...rows);
}

function makeRow(row) {
    const piece = pieceOfRow(log, row);
    if (piece.gap)
        return make("div", {class: "row gap"}, `… ${count(piece.lines, "line")} left out …`);
    const line = piece.first + row - piece.row;
    const text = lineText(log, piece.index + row - piece.row);
    const event = log.events.get(line);
    const element = make("div", {class: "row", "data-line": line},
        make("a", {class: "number", href: `#l${log.number}:${line}`, tabindex: -1}, String(line)),
        make("span", {class: "text"}, ...marked(text.slice(0, LONGEST_LINE))));
    if (text.length > LONGEST_LINE)
        element.append(make("span", {class: "quiet"},
            ` … ${count(text.length - LONGEST_LINE, "more character")}`));
    if (event !== undefined)
        element.classList.add("event", events[event].tone);
    if (line === currentLine)
        element.setAttribute("aria-current", "true");
    return element;
}

// The text with what is searched marked.
function marked(text) {
    if (!query)
        return [text];
    const parts = [];
    let at = 0;
    for (const match of text.matchAll(query)) {
        parts.push(text.slice(at, match.index), make("mark", {}, match[0]));
        at = match.index + match[0].length;
    }
    return [...parts, text.slice(at)];
}

function showLine(one, line) {
    if (log !== one)
        showLog(one);
    currentLine = line;
    const row = rowOfLine(one, line);
    if (row < firstRow + 1 || row > firstRow + rowsInView() - 3)
        scrollToRow(row - Math.floor(rowsInView() / 3));
    else
        drawRows();
}

function followLogKeys() {
    const step = {
        ArrowUp: row => row - 1, ArrowDown: row => row + 1,
        PageUp: row => row - rowsInView() + 2, PageDown: row => row + rowsInView() - 2,
        Home: () => 0, End: () => log.rows - 1,
    };
    byId("log").addEventListener("keydown", event => {
        if (!log || !step[event.key] || event.ctrlKey || event.altKey || event.metaKey)
            return;
        event.preventDefault();
        const from = currentLine ? rowOfLine(log, currentLine) : Math.floor(firstRow) - 1;
        const to = Math.min(Math.max(step[event.key](from), 0), log.rows - 1);
        goTo(`#l${log.number}:${lineOfRow(log, to)}`);
    });
    byId("log").addEventListener("scroll", () => log && followScroll());
    byId("log").addEventListener("click", event => {
        const line = event.target.closest("[data-line]")?.dataset.line;
        // Selecting text to copy it is no click on a line.
        if (line && getSelection().isCollapsed && !event.target.closest("a"))
            goTo(`#l${log.number}:${line}`, true);
    });
    byId("log-name").onchange = event => showLog(logs[event.target.value]);
}

// -- search -------------------------------------------------------------------------------------

function search(words) {
    query = words ? new RegExp(words.replace(/[\\^$.*+?()[\]{}|]/g, "\\$&"), "gi") : null;
    found = [];
    for (const one of query ? logs : []) {
        query.lastIndex = 0;
        for (let match; (match = query.exec(one.text)) && found.length < MOST_FOUND;) {
            const index = countUpTo(one.starts, match.index) - 1;
            found.push([one.number, index]);
            query.lastIndex = one.starts[index + 1] ?? one.text.length;
        }
    }
    if (log)
        drawRows();
}

// Goes to the next line that was found, from the current one on.
function goToFound(direction) {
    if (!found.length)
        return;
    const line = ([number, index]) => lineOfIndex(logs[number], index);
    const row = hit => hit[0] * 1e9 + rowOfLine(logs[hit[0]], line(hit));
    const here = log.number * 1e9 + (currentLine ? rowOfLine(log, currentLine) : -1);
    let at = countUpTo(found, here, row);
    if (direction < 0)
        at = countUpTo(found, here - 1, row) - 1;
    at = (at + found.length) % found.length;
    goTo(`#l${found[at][0]}:${line(found[at])}`);
    return at;
}
