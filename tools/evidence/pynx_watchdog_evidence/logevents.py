# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Makes events of the lines in the application's log."""

from __future__ import annotations

import math
from collections.abc import Callable, Iterable, Iterator
from datetime import datetime, timedelta
from typing import Any, BinaryIO

from .events import Clock, Event
from .jumps import LEAST, QUEUED, Readings, jump
from .log import REQUEST, Line, lines

ENDED_LOAD = 1e6  # percent; the load of a process that has ended is far more
LONGEST_INTERVAL_MS = 86_400_000  # a text that tells more is wrong


def log_events(streams: Iterable[BinaryIO], source: str, clock: Clock) -> Iterator[Event]:
    """The events in a log, in its order. `streams` are its older half, if there is one, and it."""
    alarm: Alarm | None = None
    readings = Readings(source)
    # An event without a time of its own is known by the last time before it, and how far it is.
    anchor = ("", 0)
    for line in lines(streams):
        own_time = line.fields.get("time") or line.fields.get("gmt")
        if own_time:
            anchor = (own_time, line.number)
        if line.kind == "time line":
            clock.note_time_line(line.fields["gmt"])
            jumps = readings.note(line.number, clock.last_time_line())
            if alarm:
                alarm.jumps_after.extend(jumps)
            else:
                yield from jumps
            continue
        if alarm:
            if alarm.take(line):
                continue
            yield from alarm.events(readings)
            alarm = None
        if line.kind == "alarm":
            alarm = Alarm(line, source, clock)
            alarm.jumps_before.extend(readings.note(line.number, alarm.event.time, QUEUED))
        elif line.kind in _SINGLE:
            event = _event(line, source, clock)
            if own_time:
                yield from readings.note(line.number, event.time)
            event.identity = (line.kind, *line.fields.values(), anchor[0], line.number - anchor[1])
            yield event
    if alarm:
        yield from alarm.events(readings)
    yield from readings.rest()


class Alarm:
    """An alarm, and the lines that belong to it: they follow it, without another one between."""

    def __init__(self, line: Line, source: str, clock: Clock) -> None:
        self.event = _event(line, source, clock)
        self.event.identity = (line.kind, *line.fields.values())
        self.event.fields["samples"] = []
        self._last = line.number
        self._clock = clock
        self._sampled: datetime | None = None  # the time of the last sample
        self._jumps: list[Event] = []
        # What other times tell, which is less exact.
        self.jumps_before: list[Event] = []
        self.jumps_after: list[Event] = []

    def events(self, readings: Readings) -> Iterator[Event]:
        """The alarm, and where the clock was set before it, meanwhile or after it."""
        if self._jumps:
            # The first line of an alarm has the time of its last sample.
            yield from self._jumps
            yield self.event
            readings.set(self.event.time)
        else:
            yield from self.jumps_before
            yield self.event
            yield from self.jumps_after

    def take(self, line: Line) -> bool:
        """Take `line` in if it belongs to the alarm."""
        samples: list[dict[str, Any]] = self.event.fields["samples"]
        if line.kind not in ("interval", "load", "thread total", "thread") \
                or not samples and line.kind != "interval":
            return False
        if line.number > self._last + 2:  # there may be a time line between
            return False
        self._last = line.number
        if line.kind == "interval":
            if samples and "ended" in samples[-1]:
                self._sampled = None  # the next sample is of when the process was there again
            samples.append({"interval_ms": int(line.fields["interval_ms"])})
            self._look_for_jump(line, samples[-1]["interval_ms"])
            return True
        load = _finite(line.fields["load"])
        sample = samples[-1]
        if line.kind == "load":
            sample["load"] = load
            # The alarm of a process that has just ended has no name; its earlier lines do.
            self.event.fields["process"] = self.event.fields["process"] or line.fields["process"]
            if load is not None and load > ENDED_LOAD or not line.fields["process"]:
                sample["ended"] = True
        elif line.kind == "thread total":
            sample["thread_total"] = load
            sample["threads"] = []
        else:
            sample.setdefault("threads", []).append(
                {"name": line.fields["thread"], "load": load})
        return True

    def _look_for_jump(self, line: Line, interval_ms: int) -> None:
        """The interval is not measured with the clock that the times are of."""
        before, after = self._sampled, self._clock.local(line.fields["time"], line.is_whole)
        self._sampled = after
        if before is None or after is None or not 0 <= interval_ms < LONGEST_INTERVAL_MS:
            return
        size = after.replace(tzinfo=None) - before.replace(tzinfo=None) \
            - timedelta(milliseconds=interval_ms)
        if abs(size) > LEAST:
            self._jumps.append(jump(self.event.source, line.number, before, after, size))


def _finite(text: str) -> float | None:
    """The load, which is infinite or no number where the time of the processors stood still."""
    load = float(text)
    return load if math.isfinite(load) else None


_SINGLE: dict[str, dict[str, Callable[[str], Any]]] = {
    "start": {"program": str},
    "alarm": {"process": str, "pid": int, "threshold": int, "period": int},
    "not_found": {"process": str, "arguments": str, "seconds": int},
    "memory": {"free_kib": int, "cache_kib": int},
    REQUEST: {"name": str, "file": str},
    "message": {"text": str},
    "guard": {"text": str, "guard": str, "seconds": int, "signal": int, "status": int,
              "peak_kb": int, "last_status": str},
}


def _event(line: Line, source: str, clock: Clock) -> Event:
    text = line.fields.get("time")
    time = clock.last_time_line() if text is None else \
        clock.local(text, line.is_whole, may_be_late=line.kind == "alarm")
    found = {name: read(line.fields[name]) if name in line.fields else None
             for name, read in _SINGLE[line.kind].items()}
    if line.kind == "guard":
        told = {name: value for name, value in found.items() if value is not None}
        return Event("message", time, source, line.number, {"guard": "note"} | told)
    return Event(line.kind, time, source, line.number, found)
