# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Says in a few sentences what happened."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Sequence
from datetime import timedelta

from .describe import loads, tells_end
from .ends import archive_after, ends, how_by_guard
from .events import Event, apart
from .guarded import Guarded, guarded_ends
from .join import most_frequent_offset
from .lanes import boot_of
from .sentence import CERTAIN, GUESS, LIKELY, Sentence, when
from .words import duration

_START_PROBLEMS = {
    0: "A tool or the application could not be started", 1: "A tool crashed",
    2: "A tool took longer than 10 s, or the application was not up within 500 ms",
    5: "A tool ended with another status than 0",
}


def verdict(events: Sequence[Event]) -> list[Sentence]:
    """What happened according to `events`, which are in order. The newest comes first."""
    boots, guarded = list(_boots(events)), guarded_ends(events)
    found = [*_reboots(events, boots, guarded), *_untold_boots(events),
             *ends(events, boots, guarded), *_single(events), *_absences(events), *_alarms(events)]
    if not found:
        found = [Sentence("Nothing is found that went wrong.", LIKELY if events else GUESS, [])]
    found.sort(key=lambda sentence: max(sentence.evidence, default=0), reverse=True)
    return [*found, *_guesses(events)]


def _boots(events: Sequence[Event]) -> Iterator[int]:
    """The number of the boot of each event, as far as boots are known. Numbers may be left out."""
    number, last, rebooted = 0, None, False
    for event in events:
        boot = boot_of(event.fields)
        if "cause" in event.fields or last and boot and boot != last:
            number += not rebooted  # a start can come before the first message of its boot
            rebooted = False
        last = boot or last
        yield number
        if event.kind == "reboot":
            number += 1
            rebooted = True


def _reboots(events: Sequence[Event], boots: Sequence[int],
             guarded: Sequence[Guarded]) -> Iterator[Sentence]:
    starts: list[int] = []  # of this boot
    for at, event in enumerate(events):
        if starts and boots[starts[-1]] != boots[at]:
            starts = []
        if event.kind == "start":
            starts = [*starts[-2:], at]
        if event.kind != "reboot":
            continue
        archive = archive_after(events, at, event.fields["reason"].replace(" ", "-"))
        evidence = [at] if archive is None else [at, archive]
        its_archive = "" if archive is None else f"its archive: {events[archive].source}"
        if event.fields["reason"] != "third end":
            yield Sentence("The board was rebooted, because its root file system was read-only"
                           + when(events, [at]) + (its_archive and f"; {its_archive}"), CERTAIN,
                           evidence)
            continue
        text = "The board was rebooted at the third end of the application"
        within = apart(events[starts[0]], event) if len(starts) == 3 else None
        if within is not None and within > timedelta():
            text += f" in {duration(within.total_seconds())}"
        text += when(events, [at]) + f"; {_third_ends(events, guarded, starts, at)}" + (
            f"; {its_archive}" if its_archive else
            ", and the supervisor made no archive of it, since the reboot came first")
        yield Sentence(text, CERTAIN, [*starts, *evidence])


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


def _untold_boots(events: Sequence[Event]) -> Iterator[Sentence]:
    """The boots that are known by nothing but their ids."""
    known = {boot_of(event.fields) for event in events if "cause" in event.fields}
    current: str | None = None
    last, is_told = 0, False
    boots: list[int] = []
    evidence: list[int] = []
    for at, event in enumerate(events):
        boot = boot_of(event.fields)
        if boot and boot != current:
            if current and boot not in known and not is_told:
                boots.append(at)
                evidence += [last, at]
            known.add(boot)
            current, is_told = boot, False
        last = at if boot else last
        if event.kind == "reboot" or not boot and "cause" in event.fields:
            is_told = True
    if boots:
        yield Sentence(f"The board has booted{_times(boots)}{when(events, boots)}; why is not told",
                       CERTAIN, evidence)


def _single(events: Sequence[Event]) -> Iterator[Sentence]:
    for at, event in enumerate(events):
        if event.kind == "message" and "cause" in event.fields:
            reasons = " ".join(map(str, event.fields.get("concluded_from", [])))
            yield Sentence(f"The board has booted: {event.fields['cause']}" + when(events, [at])
                           + (f" ({reasons})" if reasons else ""), LIKELY, [at])
        elif "clock_set" in event.fields:
            text = str(event.fields["text"])
            yield Sentence(f"{text[0].upper()}{text[1:]}, between {event.fields['clock_before']} "
                           f"and {event.fields['clock_after']}",
                           LIKELY if ", or " in text else CERTAIN, [at])
        elif event.kind == "start_failed":
            problem = _START_PROBLEMS.get(event.fields["code"],
                                          f"A start failed with code {event.fields['code']}")
            yield Sentence(problem + when(events, [at]), CERTAIN, [at])
        elif event.kind == "archive" and not event.fields["complete"]:
            yield Sentence(f"An archive is not whole: {event.source}", CERTAIN, [at])


def _by_process(events: Sequence[Event], kind: str) -> Iterable[tuple[str, list[int]]]:
    """The numbers of the events of a kind, for each watched process."""
    numbers: dict[str, list[int]] = {}
    for at, event in enumerate(events):
        if event.kind == kind:
            numbers.setdefault(event.fields["process"], []).append(at)
    return numbers.items()


def _absences(events: Sequence[Event]) -> Iterator[Sentence]:
    for process, absences in _by_process(events, "not_found"):
        yield Sentence(f"Process {process!r} was missing{_times(absences)} for "
                       f"{events[absences[0]].fields['seconds']} s or more"
                       + when(events, absences), CERTAIN, absences)


def _alarms(events: Sequence[Event]) -> Iterator[Sentence]:
    for process, alarms in _by_process(events, "alarm"):
        gone = [at for at in alarms if tells_end(events[at])]
        busy = [at for at in alarms if loads(events[at]) or not tells_end(events[at])]
        if busy:
            most = max((load for at in busy for load in loads(events[at])), default=None)
            yield Sentence(f"Process {process!r} was too busy{_times(busy)}" + (
                "" if most is None else f", with up to {most:g} % of all processors"
            ) + when(events, busy), CERTAIN, busy)
        if gone:
            name = f", {process!r}," if process else ""
            yield Sentence(f"A watched process{name} ended{_times(gone)}" + when(events, gone),
                           CERTAIN, gone)


def _times(numbers: Sequence[int]) -> str:
    return f" {len(numbers)} times" if len(numbers) > 1 else ""


def _guesses(events: Sequence[Event]) -> Iterator[Sentence]:
    unknown = [at for at, event in enumerate(events) if event.time and event.time.tzinfo is None]
    if unknown and any(event.time and event.time.tzinfo for event in events):
        minutes = round(most_frequent_offset([events]) / timedelta(minutes=1))
        offset = f"{'-' if minutes < 0 else '+'}{abs(minutes) // 60:02}:{abs(minutes) % 60:02}"
        yield Sentence(f"Times without an offset from UTC are taken for UTC{offset}, in "
                       f"{len(unknown)} of {len(events)} events", GUESS, unknown[:1])
