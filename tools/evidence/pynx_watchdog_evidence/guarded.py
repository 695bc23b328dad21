# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds out which of the guard's lines and stacks belong to which end of the application."""

from __future__ import annotations

import os
import signal
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from datetime import timedelta

from .events import Event, apart

THIRD_END = "third end"
SAME_SECOND = timedelta(seconds=1)  # the time of stacks has no parts of a second
LONGEST_DEATH = timedelta(minutes=5)  # from the stacks to the end; the grace can be configured
ROUNDED = 2  # seconds; the guard and the supervisor measure the same run
ORDERLY = (signal.SIGHUP, signal.SIGINT, signal.SIGTERM)


@dataclass
class Guarded:
    """What the guard tells of an end. All numbers are those of events."""

    at: int = -1  # what else tells the end: an end, a reboot or the next start; else of the guard
    start: int | None = None
    hang: int | None = None
    ended: int | None = None
    stacks: int | None = None
    hung: bool = False

    went_wrong: bool = False  # that is, it hung or crashed

    def numbers(self) -> list[int]:
        """The numbers of the guard's events."""
        return [at for at in (self.hang, self.ended, self.stacks) if at is not None]


def guarded_ends(events: Sequence[Event]) -> list[Guarded]:
    """The ends of the application that the guard tells of; `events` are in order."""
    return [run for run in _runs(events) if _complete(events, run)]


def application(events: Sequence[Event]) -> Callable[[str], str]:
    """What tells the application of a start: not the guard, but what it runs, if stacks tell it."""
    guarded = next((str(event.fields["program"]) for event in reversed(events)
                    if "stacks" in event.fields), None)

    def of_program(program: str) -> str:
        is_guard = os.path.basename(program.split(" ")[0]) == "pynx-watchdog-guard"
        return guarded if is_guard and guarded else program
    return of_program


def _runs(events: Sequence[Event]) -> list[Guarded]:
    """What is found between two ends, or an end and the next start."""
    runs = [Guarded()]
    for at, event in enumerate(events):
        run = runs[-1]
        if event.kind == "start":
            if run.at < 0:
                run.at = at
            runs.append(Guarded(start=at))
        elif event.kind == "end" or event.fields.get("reason") == THIRD_END:
            if run.at >= 0:
                runs.append(Guarded())
            runs[-1].at = at
        elif "guard" in event.fields:
            # The guard has started the application again by itself, or a log is not here.
            if run.ended is not None or run.at >= 0:
                runs.append(Guarded(start=run.start if run.at < 0 else None))
            if event.fields["guard"] == "hang":
                runs[-1].hang = at
            elif event.fields["guard"] == "ended":
                runs[-1].ended = at
        elif "stacks" in event.fields:
            _of_stacks(events, runs, event).stacks = at
    return runs


def _of_stacks(events: Sequence[Event], runs: list[Guarded], stacks: Event) -> Guarded:
    """The run that the stacks are of. Their time can be up to a second too late."""
    run = runs[-1]
    since_start = apart(events[run.start], stacks) if run.start is not None else None
    if since_start is not None and len(runs) > 1 \
            and since_start + SAME_SECOND * ROUNDED < timedelta(seconds=stacks.fields["seconds"]):
        return runs[-2]  # the process had been started before this run
    since_end = apart(events[run.at], stacks) if run.at >= 0 else None
    if since_end is not None and since_end > SAME_SECOND:
        runs.append(Guarded())
    return runs[-1]


def _complete(events: Sequence[Event], run: Guarded) -> bool:
    """Take out of a run what is not of its end. Returns whether the guard tells anything of it."""
    end = events[run.at] if run.at >= 0 else None
    if end and run.stacks is not None:
        between = apart(events[run.stacks], end)
        if between is not None and not -SAME_SECOND <= between <= LONGEST_DEATH:
            run.stacks = None
    if end and end.kind == "end" and run.ended is not None \
            and not _is_same(events[run.ended], end, run.start is not None):
        run.hang = run.ended = None
    numbers = run.numbers()
    run.hung = run.hang is not None or run.stacks is not None \
        and events[run.stacks].fields["stacks"] == "hang"
    run.went_wrong = run.hung or run.stacks is not None or run.ended is not None \
        and events[run.ended].fields.get("signal") not in (None, *ORDERLY)
    if run.at < 0 and numbers:
        run.at = numbers[0]
    return bool(numbers)


def _is_same(ended: Event, end: Event, is_same_run: bool) -> bool:
    """Whether the guard and the supervisor tell the same end. The guard ends as it has seen it."""
    how = "signal" if end.fields["crash"] else "status"
    return ended.fields.get(how) == end.fields["exit_code"] \
        and (is_same_run or ended.fields["seconds"] <= end.fields["uptime"] + ROUNDED)
