# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Says how the application came to its ends, and what was around them."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from datetime import timedelta

from .events import Event, apart
from .guarded import Guarded, application
from .sentence import CERTAIN, LIKELY, Sentence, signal_text, when
from .snapshots import busiest
from .stacks import where
from .words import duration

BEFORE_AN_END = timedelta(seconds=30)
SNAPSHOT_BEFORE = timedelta(seconds=60)  # one is taken every ten seconds, and can itself be slow
ARCHIVE_WITHIN = timedelta(seconds=90)  # five seconds, and the time that packing takes
FARTHEST = 10_000  # events that are looked at from one event on

ABORTED = "by signal 6 (SIGABRT)"  # what ends an application that hangs


@dataclass
class _End:
    """An end of the application: from its message, the guard, or concluded from the next start."""

    at: int  # the number of the event
    how: str
    uptime: float | None
    program: str
    crash: bool = False
    guard: Guarded | None = None

    @property
    def hung(self) -> bool:
        """Whether the application was ended because it hung."""
        return self.guard is not None and self.guard.hung


def ends(events: Sequence[Event], boots: Sequence[int],
         guarded: Sequence[Guarded]) -> Iterator[Sentence]:
    """A sentence for each series of like ends of a program in a boot.

    `boots` has the number of the boot of each event.
    """
    series: list[_End] = []
    for end in _each_end(events, guarded):
        if series and not _is_like(series[-1], end, boots):
            yield _series(events, series)
            series = []
        series.append(end)
    if series:
        yield _series(events, series)


def _is_like(one: _End, other: _End, boots: Sequence[int]) -> bool:
    return (one.how, one.hung, _path(one.program), boots[one.at]) \
        == (other.how, other.hung, _path(other.program), boots[other.at])


def _each_end(events: Sequence[Event], guarded: Sequence[Guarded]) -> Iterator[_End]:
    has_messages = any(event.kind == "end" for event in events)
    runs = {run.at: run for run in guarded}
    name = application(events)
    start: int | None = None
    for at, event in enumerate(events):
        run = runs.get(at)
        program = name(str(events[start].fields["program"])) if start is not None else ""
        if event.kind == "end":
            code, crash = event.fields["exit_code"], event.fields["crash"]
            how = f"by {signal_text(code)}" if crash else f"with status {code}"
            yield _End(at, how, event.fields["uptime"], program, crash, run)
        elif event.kind == "start":
            if run and (run.went_wrong or not has_messages):
                yield _End(at, how_by_guard(events, run), _uptime(events, run), program,
                           run.went_wrong, run)
            elif start is not None and not has_messages:
                yield _End(at, "", _seconds(events[start], event), program)
            start = at
        elif run and (run.went_wrong or event.kind == "reboot"):
            yield _End(at, how_by_guard(events, run), _uptime(events, run), program, False, run)


def how_by_guard(events: Sequence[Event], run: Guarded) -> str:
    """How the application came to its end, by what the guard tells; empty if it tells only why."""
    if run.ended is not None:
        known = events[run.ended].fields
        return f"by {signal_text(known['signal'])}" if "signal" in known \
            else f"with status {known['status']}"
    if run.stacks is not None and not run.hung:
        return "by " + str(events[run.stacks].fields["text"]).removeprefix("crash: ").split(",")[0]
    return ""


def _uptime(events: Sequence[Event], run: Guarded) -> float | None:
    told = run.ended if run.ended is not None else run.stacks
    return None if told is None else float(events[told].fields["seconds"])


def _path(program: str) -> str:
    """The program without arguments, which may differ."""
    return program.split(" ", 1)[0]


def _series(events: Sequence[Event], ends: list[_End]) -> Sentence:
    last, evidence = ends[-1], [end.at for end in ends]
    uptimes = [end.uptime for end in ends if end.uptime is not None]
    times = f" {len(ends)} times" if len(ends) > 1 else ""
    same = all(end.program == last.program for end in ends)
    program = last.program if same else _path(last.program)
    text = (f"Application {program!r}" if program else "The application") \
        + (f" hung{times}{_beats(events, ends)}, and was ended" if last.hung else f" ended{times}")
    if last.how and not (last.hung and last.how == ABORTED):
        text += f" {last.how}"
    if uptimes:
        least, most = duration(min(uptimes)), duration(max(uptimes))
        text += f" after {least}" if least == most else f" after {least} to {most}"
    text += when(events, evidence)
    if last.guard:
        text += _told_by_guard(events, last.guard, bool(times))
        evidence = list(dict.fromkeys([*evidence, *last.guard.numbers()]))
    elif not last.how:
        return Sentence(text + "; how, or whether the board was reset, only the system log tells",
                        LIKELY, evidence)
    if busy := _busiest_before(events, last.at):
        text += f"; in the 30 s before, {busy[1]}"
        evidence.append(busy[0])
    if last.crash:
        for number, told in _around_crash(events, last.at):
            text += f"; {told}"
            evidence += [number] if number is not None else []
    return Sentence(text, CERTAIN, evidence)


def _beats(events: Sequence[Event], ends: list[_End]) -> str:
    """How long no beat of the application had come."""
    times = [int(events[end.guard.hang].fields["seconds"]) for end in ends
             if end.guard and end.guard.hang is not None]
    if not times:
        return ""
    least, most = duration(min(times)), duration(max(times))
    return f": no beat for {least}" + (f" to {most}" if least != most else "")


def _told_by_guard(events: Sequence[Event], run: Guarded, is_series: bool) -> str:
    """Where the application was, and what it had said of itself."""
    text = ""
    if run.stacks is not None:
        text += f"; {'the last time, ' if is_series else ''}{where(events[run.stacks])}"
    status = events[run.ended].fields.get("last_status") if run.ended is not None else None
    return text + (f"; its last status was {status!r}" if status else "")


def _busiest_before(events: Sequence[Event], at: int) -> tuple[int, str] | None:
    """The last alarm in the time before event number `at`, and who was busy."""
    for number in _before(events, at, BEFORE_AN_END):
        event = events[number]
        if event.kind != "alarm" or not event.fields["samples"]:
            continue
        sample = event.fields["samples"][-1]
        threads = sample.get("threads") or []
        limit = f"of {event.fields['threshold']} % allowed"
        if threads and threads[0]["load"] is not None:
            return number, f"thread {threads[0]['name']!r} used {threads[0]['load']:g} % {limit}"
        if "ended" in sample:
            return number, f"{event.fields['process']!r} ended, which was watched"
        if sample.get("load") is None:  # not measured, or the log is cut here
            return number, f"{event.fields['process']!r} was too busy"
        return number, f"{event.fields['process']!r} used {sample['load']:g} % {limit}"
    return None


def _before(events: Sequence[Event], at: int, longest: timedelta) -> Iterator[int]:
    """The numbers of the events so long before event number `at`, the last one first."""
    for number in range(at - 1, max(at - FARTHEST, 0) - 1, -1):
        between = apart(events[number], events[at])
        if between is not None and between > longest:
            return
        if between is not None:
            yield number


def _around_crash(events: Sequence[Event], at: int) -> Iterator[tuple[int | None, str]]:
    """The snapshot and the archive of a crash: the number of the event, and what to say of it."""
    for number in _before(events, at, SNAPSHOT_BEFORE):
        if events[number].kind == "snapshot":
            yield number, f"a snapshot {_snapshot(events, number, at)}"
            break
    archive = archive_after(events, at, "main")
    if archive is None:
        yield None, "no archive of it is here"
        return
    yield archive, f"its archive: {events[archive].source}"
    if events[archive].fields.get("old_copies"):
        yield None, "the snapshots beside it there are of an earlier crash"


def _snapshot(events: Sequence[Event], number: int, at: int) -> str:
    snapshot = events[number].fields
    before = _seconds(events[number], events[at]) or 0
    average, busy = snapshot["load_average"], busiest(snapshot["processes"])
    return f"{duration(before)} before" \
        + (f" has a load average of {average[0]:g}" if average else "") \
        + (f", and {busy['command']!r} with {busy['cpu']:g} %" if busy else "")


def archive_after(events: Sequence[Event], at: int, name: str) -> int | None:
    """The number of the next archive with this name that belongs to event number `at`."""
    for number in range(at + 1, min(at + FARTHEST, len(events))):
        event = events[number]
        between = apart(events[at], event)
        if between is not None and between > ARCHIVE_WITHIN:
            return None
        if event.kind == "archive" and event.fields["name"] == name:
            return number
    return None


def _seconds(earlier: Event, later: Event) -> float | None:
    between = apart(earlier, later)
    return None if between is None else between.total_seconds()
