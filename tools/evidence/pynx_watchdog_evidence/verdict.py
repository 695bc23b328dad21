# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Says in a few sentences what happened."""

from __future__ import annotations

import signal
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, field
from datetime import datetime, timedelta

from .events import Event

BEFORE_AN_END = timedelta(seconds=30)
ARCHIVE_WITHIN = timedelta(seconds=90)  # five seconds, and the time that packing takes
RESTART_WITHIN = timedelta(seconds=30)

CERTAIN, LIKELY, GUESS = "certain", "likely", "guess"

_START_PROBLEMS = {
    0: "a tool or the application could not be started", 1: "a tool crashed",
    2: "a tool took longer than 10 s, or the application was not up within 500 ms",
    5: "a tool ended with another status than 0",
}


@dataclass
class Sentence:
    """A part of the verdict."""

    text: str
    certainty: str
    evidence: list[int] = field(default_factory=list)  # numbers of events, from 0


@dataclass
class _End:
    """An end of the application: from its message, or concluded from the next start."""

    at: int  # the number of the event
    how: str
    uptime: float | None
    program: str
    crash: bool = False


def verdict(events: Sequence[Event]) -> list[Sentence]:
    """What happened according to `events`, which are in order. The newest comes first."""
    found = [*_ends(events), *_reboots(events), *_single(events), *_alarms(events)]
    if not found:
        return [Sentence("Nothing is found that went wrong.", LIKELY if events else GUESS)]
    return sorted(found, key=lambda sentence: max(sentence.evidence), reverse=True)


# -- ends of the application ----------------------------------------------------------------------


def _ends(events: Sequence[Event]) -> Iterator[Sentence]:
    series: list[_End] = []
    for end in _each_end(events):
        if series and (series[-1].how, series[-1].program) != (end.how, end.program):
            yield _series(events, series)
            series = []
        series.append(end)
    if series:
        yield _series(events, series)


def _each_end(events: Sequence[Event]) -> Iterator[_End]:
    has_messages = any(event.kind == "end" for event in events)
    start: int | None = None
    for at, event in enumerate(events):
        program = str(events[start].fields["program"]) if start is not None else "the application"
        if event.kind == "end":
            code, crash = event.fields["exit_code"], event.fields["crash"]
            how = f"by {signal_text(code)}" if crash else f"with status {code}"
            yield _End(at, how, event.fields["uptime"], program, crash)
        elif event.kind == "start":
            if start is not None and not has_messages:
                yield _End(at, "", _seconds(events[start], event), program)
            start = at


def _series(events: Sequence[Event], ends: list[_End]) -> Sentence:
    last, evidence = ends[-1], [end.at for end in ends]
    uptimes = [end.uptime for end in ends if end.uptime is not None]
    times = f" {len(ends)} times" if len(ends) > 1 else ""
    text = f"{_quoted(last.program)} ended{times}"
    if last.how:
        text += f" {last.how}"
    if uptimes:
        least, most = _duration(min(uptimes)), _duration(max(uptimes))
        text += f" after {least}" if least == most else f" after {least} to {most}"
    text += _when(events, evidence)
    if not last.how:
        return Sentence(text + "; how, only the system log tells", LIKELY, evidence)
    if busy := _busiest_before(events, last.at):
        text += f"; in the 30 s before, {busy[1]}"
        evidence.append(busy[0])
    if last.crash:
        archive = _archive_after(events, last.at)
        text += f"; its archive: {events[archive].source}" if archive is not None \
            else "; no archive of it is here"
        evidence += [archive] if archive is not None else []
    return Sentence(text, CERTAIN, evidence)


def _busiest_before(events: Sequence[Event], at: int) -> tuple[int, str] | None:
    """The last alarm in the time before event number `at`, and who was busy."""
    for number in range(at - 1, -1, -1):
        event = events[number]
        if (apart := _apart(event, events[at])) is None:
            continue
        if apart > BEFORE_AN_END:
            return None
        if event.kind != "alarm" or not event.fields["samples"]:
            continue
        sample = event.fields["samples"][-1]
        threads = sample.get("threads") or []
        limit = f"of {event.fields['threshold']} % allowed"
        if threads:
            return number, f"thread {threads[0]['name']!r} used {threads[0]['load']:g} % {limit}"
        return number, f"{event.fields['process']!r} used {sample.get('load') or 0:g} % {limit}"
    return None


def _archive_after(events: Sequence[Event], at: int) -> int | None:
    for number in range(at + 1, len(events)):
        event = events[number]
        apart = _apart(events[at], event)
        if apart is not None and apart > ARCHIVE_WITHIN:
            return None
        if event.kind == "archive" and event.fields["name"] == "main":
            return number
    return None


# -- the board ------------------------------------------------------------------------------------


def _reboots(events: Sequence[Event]) -> Iterator[Sentence]:
    for at, event in enumerate(events):
        if event.kind != "reboot":
            continue
        evidence = [at]
        if event.fields["reason"] != "third end":
            yield Sentence("the board was rebooted, because its root file system was read-only"
                           + _when(events, evidence), CERTAIN, evidence)
            continue
        starts = [number for number in range(at) if events[number].kind == "start"][-3:]
        text = "the board was rebooted at the third end of the application"
        within = _apart(events[starts[0]], event) if len(starts) == 3 else None
        if within is not None:
            text += f" in {_duration(within.total_seconds())}"
        text += _when(events, evidence) + ("; how it ended is not told, and no archive of it was "
                                           "made by itself, since the reboot came first")
        yield Sentence(text, CERTAIN, [*starts, at])


def _single(events: Sequence[Event]) -> Iterator[Sentence]:
    for at, event in enumerate(events):
        if event.kind == "message" and "cause" in event.fields:
            reasons = "; ".join(map(str, event.fields.get("concluded_from") or []))
            yield Sentence(f"the board has booted: {event.fields['cause']}"
                           + (f" ({reasons})" if reasons else "") + _when(events, [at]),
                           LIKELY, [at])
        elif event.kind == "start_failed":
            problem = _START_PROBLEMS.get(event.fields["code"], f"code {event.fields['code']}")
            yield Sentence(problem + _when(events, [at]), CERTAIN, [at])
        elif event.kind == "not_found":
            yield Sentence(f"{event.fields['process']!r} was missing for "
                           f"{event.fields['seconds']} s" + _when(events, [at]), CERTAIN, [at])
        elif event.kind == "archive" and not event.fields["complete"]:
            yield Sentence(f"an archive is not whole: {event.source}", CERTAIN, [at])


def _alarms(events: Sequence[Event]) -> Iterator[Sentence]:
    by_process: dict[str, list[int]] = {}
    for at, event in enumerate(events):
        if event.kind == "alarm":
            by_process.setdefault(event.fields["process"], []).append(at)
    for process, alarms in by_process.items():
        loads = [sample["load"] for at in alarms for sample in events[at].fields["samples"]
                 if sample.get("load") is not None and "ended" not in sample]
        text = f"{process!r} was too busy" + (f" {len(alarms)} times" if len(alarms) > 1 else "")
        if loads:
            text += f", with up to {max(loads):g} % of all processors"
        yield Sentence(text + _when(events, alarms), CERTAIN, alarms)


# -- words ----------------------------------------------------------------------------------------


def signal_text(number: int) -> str:
    """A signal with its name, if it has one."""
    try:
        return f"signal {number} ({signal.Signals(number).name})"
    except ValueError:
        return f"signal {number}"


def _quoted(program: str) -> str:
    return program if program == "the application" else f"{program!r}"


def _duration(seconds: float) -> str:
    if seconds < 120:
        return f"{seconds:.0f} s"
    if seconds < 7200:
        return f"{seconds / 60:.0f} min"
    if seconds < 172800:
        return f"{seconds / 3600:.0f} h"
    return f"{seconds / 86400:.0f} days"


def _when(events: Sequence[Event], numbers: list[int]) -> str:
    times = [_moment(time) for number in numbers if (time := events[number].time)]
    if not times:
        return ""
    return f" at {times[0]}" if len(times) == 1 else f", from {times[0]} to {times[-1]}"


def _moment(time: datetime) -> str:
    return time.isoformat(sep=" ", timespec="seconds")


def _apart(earlier: Event, later: Event) -> timedelta | None:
    if earlier.time is None or later.time is None:
        return None
    if (earlier.time.tzinfo is None) != (later.time.tzinfo is None):
        return later.time.replace(tzinfo=None) - earlier.time.replace(tzinfo=None)
    return later.time - earlier.time


def _seconds(earlier: Event, later: Event) -> float | None:
    apart = _apart(earlier, later)
    return None if apart is None else apart.total_seconds()
