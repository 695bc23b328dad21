# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Says in a few sentences what happened."""

from __future__ import annotations

import signal
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, field
from datetime import timedelta

from .events import Event, apart
from .guarded import Guarded, application, guarded_ends
from .join import most_frequent_offset
from .snapshots import busiest
from .stacks import where
from .words import duration, moment

BEFORE_AN_END = timedelta(seconds=30)
SNAPSHOT_BEFORE = timedelta(seconds=60)  # one is taken every ten seconds, and can itself be slow
ARCHIVE_WITHIN = timedelta(seconds=90)  # five seconds, and the time that packing takes
FARTHEST = 10_000  # events that are looked at from one event on

CERTAIN, LIKELY, GUESS = "certain", "likely", "guess"

ABORTED = "by signal 6 (SIGABRT)"  # what ends an application that hangs

_START_PROBLEMS = {
    0: "A tool or the application could not be started", 1: "A tool crashed",
    2: "A tool took longer than 10 s, or the application was not up within 500 ms",
    5: "A tool ended with another status than 0",
}


@dataclass
class Sentence:
    """A part of the verdict."""

    text: str
    certainty: str
    evidence: list[int] = field(default_factory=list)  # numbers of events, from 0


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


def verdict(events: Sequence[Event]) -> list[Sentence]:
    """What happened according to `events`, which are in order. The newest comes first."""
    boots = list(_boots(events))
    found = [*_reboots(events, boots), *_ends(events, boots), *_single(events), *_absences(events),
             *_alarms(events)]
    if not found:
        found = [Sentence("Nothing is found that went wrong.", LIKELY if events else GUESS, [])]
    found.sort(key=lambda sentence: max(sentence.evidence, default=0), reverse=True)
    return [*found, *_guesses(events)]


def _boots(events: Sequence[Event]) -> Iterator[int]:
    """The number of the boot of each event, as far as boots are known. Numbers may be left out."""
    number, last, rebooted = 0, None, False
    for event in events:
        boot = event.fields.get("boot_id")
        if "cause" in event.fields or last and isinstance(boot, str) and boot != last:
            number += not rebooted  # a start can come before the first message of its boot
            rebooted = False
        last = boot if isinstance(boot, str) else last
        yield number
        if event.kind == "reboot":
            number += 1
            rebooted = True


# -- ends of the application ----------------------------------------------------------------------


def _ends(events: Sequence[Event], boots: Sequence[int]) -> Iterator[Sentence]:
    """A sentence for each series of like ends of a program in a boot."""
    series: list[_End] = []
    for end in _each_end(events):
        if series and not _is_like(series[-1], end, boots):
            yield _series(events, series)
            series = []
        series.append(end)
    if series:
        yield _series(events, series)


def _is_like(one: _End, other: _End, boots: Sequence[int]) -> bool:
    return (one.how, one.hung, _path(one.program), boots[one.at]) \
        == (other.how, other.hung, _path(other.program), boots[other.at])


def _each_end(events: Sequence[Event]) -> Iterator[_End]:
    has_messages = any(event.kind == "end" for event in events)
    guarded = {run.at: run for run in guarded_ends(events)}
    name = application(events)
    start: int | None = None
    for at, event in enumerate(events):
        run = guarded.get(at)
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
    text += _when(events, evidence)
    if last.guard:
        text += _told_by_guard(events, last.guard, bool(times))
        evidence = list(dict.fromkeys([*evidence, *last.guard.numbers()]))
    elif not last.how:
        return Sentence(text + "; how, only the system log tells", LIKELY, evidence)
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
    archive = _archive_after(events, at)
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


def _archive_after(events: Sequence[Event], at: int) -> int | None:
    for number in range(at + 1, min(at + FARTHEST, len(events))):
        event = events[number]
        between = apart(events[at], event)
        if between is not None and between > ARCHIVE_WITHIN:
            return None
        if event.kind == "archive" and event.fields["name"] == "main":
            return number
    return None


# -- the board ------------------------------------------------------------------------------------


def _reboots(events: Sequence[Event], boots: Sequence[int]) -> Iterator[Sentence]:
    guarded = guarded_ends(events)
    starts: list[int] = []  # of this boot
    for at, event in enumerate(events):
        if starts and boots[starts[-1]] != boots[at]:
            starts = []
        if event.kind == "start":
            starts = [*starts[-2:], at]
        if event.kind != "reboot":
            continue
        if event.fields["reason"] != "third end":
            yield Sentence("The board was rebooted, because its root file system was read-only"
                           + _when(events, [at]), CERTAIN, [at])
            continue
        text = "The board was rebooted at the third end of the application"
        within = apart(events[starts[0]], event) if len(starts) == 3 else None
        if within is not None and within > timedelta():
            text += f" in {duration(within.total_seconds())}"
        text += _when(events, [at]) + f"; {_third_ends(events, guarded, starts, at)}, and " \
            "the supervisor made no archive of it, since the reboot came first"
        yield Sentence(text, CERTAIN, [*starts, at])


def _third_ends(events: Sequence[Event], guarded: Sequence[Guarded], starts: Sequence[int],
                reboot: int) -> str:
    """How the third end came, or all three."""
    hung = {run.start for run in guarded if run.hung}
    third = next((run for run in guarded if run.at == reboot), None)
    if len(starts) == 3 and hung.issuperset(starts):
        return "each was a hang"
    if third and third.hung:
        return "it was a hang"
    how = how_by_guard(events, third) if third else ""
    return f"it ended {how}" if how else "how it ended is not told"


def _single(events: Sequence[Event]) -> Iterator[Sentence]:
    for at, event in enumerate(events):
        if event.kind == "message" and "cause" in event.fields:
            reasons = " ".join(map(str, event.fields["concluded_from"]))
            yield Sentence(f"The board has booted: {event.fields['cause']}" + _when(events, [at])
                           + (f" ({reasons})" if reasons else ""), LIKELY, [at])
        elif "clock_set" in event.fields:
            text = str(event.fields["text"])
            yield Sentence(f"{text[0].upper()}{text[1:]}, between {event.fields['clock_before']} "
                           f"and {event.fields['clock_after']} ({event.source}:{event.line})",
                           LIKELY if ", or " in text else CERTAIN, [at])
        elif event.kind == "start_failed":
            problem = _START_PROBLEMS.get(event.fields["code"],
                                          f"A start failed with code {event.fields['code']}")
            yield Sentence(problem + _when(events, [at]), CERTAIN, [at])
        elif event.kind == "archive" and not event.fields["complete"]:
            yield Sentence(f"An archive is not whole: {event.source}", CERTAIN, [at])


def _absences(events: Sequence[Event]) -> Iterator[Sentence]:
    by_process: dict[str, list[int]] = {}
    for at, event in enumerate(events):
        if event.kind == "not_found":
            by_process.setdefault(event.fields["process"], []).append(at)
    for process, absences in by_process.items():
        times = f" {len(absences)} times" if len(absences) > 1 else ""
        yield Sentence(f"Process {process!r} was missing{times} for "
                       f"{events[absences[0]].fields['seconds']} s or more"
                       + _when(events, absences), CERTAIN, absences)


def _alarms(events: Sequence[Event]) -> Iterator[Sentence]:
    by_process: dict[str, list[int]] = {}
    for at, event in enumerate(events):
        if event.kind == "alarm":
            by_process.setdefault(event.fields["process"], []).append(at)
    for process, alarms in by_process.items():
        loads = [sample["load"] for at in alarms for sample in events[at].fields["samples"]
                 if sample.get("load") is not None and "ended" not in sample]
        times = f" {len(alarms)} times" if len(alarms) > 1 else ""
        if not loads and any("ended" in sample for at in alarms
                             for sample in events[at].fields["samples"]):
            text = "A watched process" + (f", {process!r}," if process else "") + f" ended{times}"
        else:
            text = f"Process {process!r} was too busy{times}"
        if loads:
            text += f", with up to {max(loads):g} % of all processors"
        yield Sentence(text + _when(events, alarms), CERTAIN, alarms)


def _guesses(events: Sequence[Event]) -> Iterator[Sentence]:
    unknown = [at for at, event in enumerate(events) if event.time and event.time.tzinfo is None]
    if unknown and any(event.time and event.time.tzinfo for event in events):
        minutes = round(most_frequent_offset([events]) / timedelta(minutes=1))
        offset = f"{'-' if minutes < 0 else '+'}{abs(minutes) // 60:02}:{abs(minutes) % 60:02}"
        yield Sentence(f"Times without an offset from UTC are taken for UTC{offset}, in "
                       f"{len(unknown)} of {len(events)} events", GUESS, unknown[:1])


# -- words ----------------------------------------------------------------------------------------


def signal_text(number: int) -> str:
    """A signal with its name, if it has one."""
    try:
        return f"signal {number} ({signal.Signals(number).name})"
    except ValueError:
        return f"signal {number}"


def _when(events: Sequence[Event], numbers: list[int]) -> str:
    times = [moment(time) for number in numbers if (time := events[number].time)]
    if not times:
        return ""
    return f" at {times[0]}" if len(times) == 1 else f", from {times[0]} to {times[-1]}"


def _seconds(earlier: Event, later: Event) -> float | None:
    between = apart(earlier, later)
    return None if between is None else between.total_seconds()
