// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The data of the page, and what all parts of it need. The parts are joined to one script.

const byId = id => document.getElementById(id);

// An element with attributes and children. A child that is a string stays text, whatever is in it.
function make(tag, attributes = {}, ...children) {
    return fill(document.createElement(tag), attributes, children);
}

function makeSvg(tag, attributes = {}, ...children) {
    return fill(document.createElementNS("http://www.w3.org/2000/svg", tag), attributes, children);
}

function fill(element, attributes, children) {
    for (const [name, value] of Object.entries(attributes))
        element.setAttribute(name, value);
    element.append(...children);
    return element;
}

// The text of a data block, which is compressed and in base64.
async function unpack(id) {
    const packed = atob(byId(id).textContent);
    byId(id).remove();
    const bytes = new Uint8Array(packed.length);
    for (let i = 0; i < packed.length; ++i)
        bytes[i] = packed.charCodeAt(i);
    const plain = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("gzip"));
    return new TextDecoder("utf-8", {ignoreBOM: true})
        .decode(await new Response(plain).arrayBuffer());
}

function complain(problem) {
    byId("problem").textContent = `The page cannot be shown: ${problem}`;
    byId("problem").hidden = false;
}
window.addEventListener("error", event => complain(event.message));
window.addEventListener("unhandledrejection", event => complain(event.reason));

const data = JSON.parse(await unpack("data"));
const events = data.events;

// How many items of a sorted list come before the first one that is greater than `value`.
function countUpTo(list, value, of = item => item) {
    let low = 0;
    let high = list.length;
    while (low < high) {
        const middle = (low + high) >> 1;
        if (of(list[middle]) <= value)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// -- times, in milliseconds since 1970 ----------------------------------------------------------

let shift = (data.offset ?? 0) * 60000; // from UTC to the time that is shown

const zoneName = minutes => {
    const size = Math.abs(minutes);
    const part = value => String(Math.floor(value)).padStart(2, "0");
    return minutes ? `UTC${minutes < 0 ? "−" : "+"}${part(size / 60)}:${part(size % 60)}` : "UTC";
};

const iso = time => new Date(time + shift).toISOString().replace(/^[+-]0*/, "");
const dateText = time => iso(time).slice(0, -14);
const clockText = time => iso(time).slice(-13, -1);
const timeText = time => `${dateText(time)} ${clockText(time)}`;

function eventTimeText(event) {
    if (event.time === null)
        return "time unknown";
    return (event.after ? "at or after " : "") + timeText(event.time);
}

// How long a time is, in the largest unit that fits.
function durationText(ms) {
    for (const [unit, size] of [["days", 86400000], ["h", 3600000], ["min", 60000], ["s", 1000]])
        if (ms >= 2 * size)
            return `${(ms / size).toLocaleString("en", {maximumFractionDigits: 1})} ${unit}`;
    return `${Math.round(ms)} ms`;
}

const count = (number, one, many = `${one}s`) =>
    `${number.toLocaleString("en")} ${number === 1 ? one : many}`;

// Shows what the address names, as a click on a link to it does: #e5 is an event, #l0:7 a line of a
// log, #t1700000000000 a moment.
function goTo(hash, keepHistory = false) {
    if (keepHistory)
        location.hash = hash;
    else
        location.replace(hash);
}

// -- tables ------------------------------------------------------------------------------------

const isNumber = cell => cell !== null && cell !== "" && !isNaN(cell);

// Numbers by their size, also those that are texts; then texts.
function compare(one, other) {
    if (isNumber(one) && isNumber(other))
        return one - other;
    return isNumber(other) - isNumber(one) ||
        String(one ?? "").localeCompare(String(other ?? ""), "en");
}
