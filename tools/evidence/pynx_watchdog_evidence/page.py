# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Writes the page: one HTML file with all that it shows, which loads nothing from elsewhere.

Its data is compressed and in base64, so that nothing in a log can become a part of the HTML.
"""

from __future__ import annotations

import base64
import bisect
import gzip
import hashlib
import heapq
import json
import math
import re
import sys
from collections.abc import Iterable, Iterator, Mapping, Sequence
from contextlib import ExitStack, closing
from datetime import datetime, timedelta, timezone
from itertools import accumulate, chain, pairwise
from pathlib import Path
from typing import Any, NamedTuple

from .curves import Curve, load_curves, memory_curves
from .describe import describe, tone
from .events import Clock, Event, is_after
from .join import most_frequent_offset
from .lanes import boots, runs
from .logtext import Kept, keep, marks
from .sentence import MOST_SENTENCES, Sentence
from .sources import Archives, Log

ROOM = 20 << 20  # bytes of the logs' texts that are kept, before they are compressed
MOST_EVENTS = 50_000
MOST_EVIDENCE = 20  # events that are named beside a sentence
MOST_PROCESSES = 200_000  # rows in all tables of processes together
LONGEST_DETAIL = 20_000

_KEPT_ALWAYS = ("start", "end", "start_failed", "reboot", "archive")
_FILES = Path(__file__).parent / "page"
_SCRIPTS = ("uplot/uPlot.iife.js", "base.js", "axis.js", "curves.js", "log.js", "events.js",
            "main.js")
_STYLES = ("uplot/uPlot.min.css", "page.css")


def write_page(target: Path, events: list[Event], verdict: list[Sentence],
               logs: list[Log], complaints: Mapping[Path, Sequence[str]]) -> None:
    """Write the page to `target`. `complaints` has what is wrong with files. Raises OSError."""
    offset = most_frequent_offset([events])
    texts, missing = _texts(logs, events, offset)
    shown, sentences = _thinned(events, verdict[:MOST_SENTENCES])
    times = list(_times(shown, texts, offset))
    data = _shown_events(shown, times) | {
        "made": datetime.now(timezone.utc).isoformat(timespec="seconds"),
        "offset": offset / timedelta(minutes=1) if _is_known(events) else None,
        "verdict": sentences, "sentences": len(verdict), "eventsFound": len(events),
        "boots": list(boots(shown, times)), "runs": list(runs(shown, times)),
        "load": [_curve(curve) for curve in load_curves(shown, times)],
        "memory": [_curve(curve) for curve in memory_curves(shown, times)],
        "complaints": [f"{path}: {reason}" for path, reasons in complaints.items()
                       for reason in reasons]
        + [f"{name}: its text could not be read again" for name in missing],
        "logs": [{"name": text.name, "lines": text.kept.lines, "size": text.kept.size,
                  "keptSize": len(text.kept.text), "pieces": text.kept.pieces,
                  "marks": text.marks} for text in texts],
    }
    write_file(target, "index.html", _SCRIPTS, data, [text.kept.text for text in texts])


# -- the file -------------------------------------------------------------------------------------


def write_file(target: Path, template: str, scripts: Sequence[str], data: Mapping[str, Any],
               texts: Sequence[bytes] = ()) -> None:
    """Write a page with its scripts, its data and texts to `target`. Raises OSError."""
    # Whoever looks for what the page could fetch shall not find the addresses in uPlot's comments.
    script = re.sub(r"(?m)^[ \t]*(//|\*).*://.*\n", "", "\n".join(
        [f"/*\n{_file('uplot/LICENSE')}\n*/", *map(_file, scripts)]))
    style = "\n".join(map(_file, _STYLES))
    policy = (f"default-src 'none'; script-src {_hash(script)}; style-src {_hash(style)}; "
              "connect-src 'none'; base-uri 'none'; form-action 'none'")
    before, after = _file(template).split("<!-- data -->")
    packed = json.dumps(data, allow_nan=False, separators=(",", ":")).encode()
    with target.open("w", encoding="utf-8") as file:
        file.write(before.replace("POLICY", policy).replace("/* style */", style))
        file.write(_data_block("data", packed))
        for number, text in enumerate(texts):
            file.write(_data_block(f"log-{number}", text))
        file.write(after.replace("/* script */", script))


def _file(name: str) -> str:
    return (_FILES / name).read_text(encoding="utf-8")


def _hash(text: str) -> str:
    return f"'sha256-{base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()}'"


def _data_block(name: str, data: bytes) -> str:
    packed = base64.b64encode(gzip.compress(data, 6, mtime=0)).decode()
    return f'<script type="text/plain" id="{name}">{packed}</script>\n'


# -- the logs -------------------------------------------------------------------------------------


_Mark = tuple[int, int]  # a line and its time in milliseconds


class _Text(NamedTuple):
    """What the page has of a log."""

    name: str
    kept: Kept
    marks: list[_Mark]  # both in ascending order


def _texts(logs: Sequence[Log], events: Sequence[Event],
           offset: timedelta) -> tuple[list[_Text], list[str]]:
    """The texts of the logs, and the names of the logs that cannot be read."""
    texts: list[_Text] = []
    missing: list[str] = []
    by_source: dict[str, list[Event]] = {}
    for event in events:
        if event.line:
            by_source.setdefault(event.source, []).append(event)
    room = ROOM
    with closing(Archives()) as archives:
        for number, log in enumerate(logs):
            try:
                text = _read(log, archives, by_source.get(log.name, []),
                             room // (len(logs) - number), offset)
            except OSError:
                missing.append(log.name)
                continue
            texts.append(text)
            room -= len(text.kept.text)
    return texts, missing


def _read(log: Log, archives: Archives, events: Sequence[Event], room: int,
          offset: timedelta) -> _Text:
    with ExitStack() as files:
        streams = [files.enter_context(stream) for stream in log.open(archives)]
        kept = keep(streams, {event.line for event in events}, room)
        for stream in streams:
            stream.seek(0)
        known = next((event.time.utcoffset() for event in events if event.time), None)
        timed = sorted((event.line, _milliseconds(event.time, offset)) for event in events
                       if event.time and not is_after(event))
        # There can be too many of these to hold them all.
        noted = ((line, _milliseconds(time, offset)) for line, time in marks(streams, Clock(known)))
        needed = list(_needed(_ascending(heapq.merge(noted, timed)), kept.pieces))
    return _Text(log.name, kept, needed)


def _ascending(found: Iterable[_Mark]) -> Iterator[_Mark]:
    """The marks, without earlier times at later lines, as where the clock was set back."""
    return accumulate(found, lambda before, mark: (mark[0], max(before[1], mark[1])))


def _needed(found: Iterable[_Mark], pieces: Sequence[tuple[int, int]]) -> Iterator[_Mark]:
    """Those of the marks that tell the time of a line in one of the pieces."""
    at = 0
    for mark, later in pairwise(chain(found, [(sys.maxsize, 0)])):
        while at < len(pieces) and sum(pieces[at]) <= mark[0]:
            at += 1
        if at < len(pieces) and pieces[at][0] < later[0] and mark != later:
            yield mark


# -- times ----------------------------------------------------------------------------------------


def _milliseconds(time: datetime, offset: timedelta) -> int:
    """A time as milliseconds since 1970. A local time has this offset from UTC."""
    if time.tzinfo is None:
        time = time.replace(tzinfo=timezone(offset))
    return (time - datetime(1970, 1, 1, tzinfo=timezone.utc)) // timedelta(milliseconds=1)


def _is_known(events: Sequence[Event]) -> bool:
    """Whether the offset of local time is known. A message in UTC does not tell it."""
    return any(event.time and event.time.utcoffset() is not None
               and (event.time.utcoffset() or event.kind in ("start", "alarm", "memory"))
               for event in events)


def _times(events: Sequence[Event], texts: Sequence[_Text],
           offset: timedelta) -> Iterator[int | None]:
    """The times of the events. One without a time is at or after what precedes it in its source."""
    marks_of = {text.name: text.marks for text in texts}
    latest: dict[str, int] = {}
    for event in events:
        found = marks_of.get(event.source, [])
        before = bisect.bisect(found, event.line, key=lambda mark: mark[0])
        if is_after(event) and before:
            latest[event.source] = found[before - 1][1]
        elif event.time:
            latest[event.source] = _milliseconds(event.time, offset)
        yield latest.get(event.source)


# -- the events -----------------------------------------------------------------------------------


def _thinned(events: list[Event],
             verdict: Sequence[Sentence]) -> tuple[list[Event], list[dict[str, Any]]]:
    """As many of the events as a page can hold, and the sentences with the numbers of these."""
    named = [sentence.evidence if len(sentence.evidence) <= MOST_EVIDENCE else
             sentence.evidence[:MOST_EVIDENCE // 2] + sentence.evidence[-MOST_EVIDENCE // 2:]
             for sentence in verdict]
    kept = {number for evidence in named for number in evidence}
    kept |= {number for number, event in enumerate(events) if event.kind in _KEPT_ALWAYS}
    step = math.ceil(len(events) / max(MOST_EVENTS - len(kept), 1))
    kept |= set(range(0, len(events), step or 1))
    shown = sorted(kept)
    places = {number: place for place, number in enumerate(shown)}
    return [events[number] for number in shown], [
        {"text": sentence.text, "certainty": sentence.certainty,
         "evidence": [places[number] for number in evidence], "of": len(sentence.evidence)}
        for sentence, evidence in zip(verdict, named)]


def _shown_events(events: Sequence[Event], times: Sequence[int | None]) -> dict[str, Any]:
    sources = {name: place for place, name in
               enumerate(dict.fromkeys(event.source for event in events))}
    snapshots: dict[int, dict[str, Any]] = {}
    rows = 0
    found = []
    for number, (event, time) in enumerate(zip(events, times)):
        if event.kind == "snapshot" and rows < MOST_PROCESSES:
            snapshots[number] = _table(event.fields["processes"])
            rows += len(event.fields["processes"])
        found.append({"kind": event.kind, "time": time, "after": is_after(event),
                      "source": sources[event.source], "line": event.line,
                      "text": describe(event), "tone": tone(event),
                      "details": _details(event.fields)})
    return {"sources": list(sources), "events": found, "snapshots": snapshots}


def _details(fields: Mapping[str, Any]) -> dict[str, str]:
    return {name: _text(value)[:LONGEST_DETAIL] for name, value in fields.items()
            if name not in ("processes", "samples") and value is not None}


def _text(value: object) -> str:
    if not isinstance(value, (list, dict)):
        return str(value)
    try:
        short = json.dumps(value, ensure_ascii=False)
        return short if len(short) < 80 else json.dumps(value, indent=1, ensure_ascii=False)
    except RecursionError:
        return "too deeply nested to be shown"


def _table(processes: Sequence[Mapping[str, Any]]) -> dict[str, Any]:
    names = dict.fromkeys(name for row in processes for name in row)
    columns = ["pid", "cpu", *(name for name in names if name not in ("pid", "cpu", "command")),
               "command"]
    return {"columns": columns, "rows": [[_cell(row.get(name)) for name in columns]
                                         for row in processes]}


def _cell(value: object) -> object:
    return None if isinstance(value, float) and not math.isfinite(value) else value


def _curve(curve: Curve) -> dict[str, Any]:
    points = sorted(curve.points.items())
    return {"name": curve.name, "kind": curve.kind, "times": [time for time, _ in points],
            "values": [value for _, value in points]}
