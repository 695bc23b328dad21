# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A sentence of the verdict, and words for it."""

from __future__ import annotations

import signal
from collections.abc import Sequence
from dataclasses import dataclass, field

from .events import Event
from .words import moment

CERTAIN, LIKELY, GUESS = "certain", "likely", "guess"
MOST_SENTENCES = 200  # that are told of a verdict


@dataclass
class Sentence:
    """A part of the verdict."""

    text: str
    certainty: str
    evidence: list[int] = field(default_factory=list)  # numbers of events, from 0


def lines_of(events: Sequence[Event], sentence: Sentence) -> str:
    """The lines of the first and of the last event that the sentence stands on."""
    numbers = sorted(sentence.evidence)
    ends = (events[number] for number in numbers[:1] + numbers[-1:])
    return " to ".join(dict.fromkeys(event.source + (f":{event.line}" if event.line else "")
                                     for event in ends))


def when(events: Sequence[Event], numbers: list[int]) -> str:
    """When the events with these numbers happened."""
    times = [moment(time) for number in numbers if (time := events[number].time)]
    if not times:
        return " at a time that is not told"
    return f" at {times[0]}" if len(times) == 1 else f", from {times[0]} to {times[-1]}"


def signal_text(number: int) -> str:
    """A signal with its name, if it has one."""
    try:
        return f"signal {number} ({signal.Signals(number).name})"
    except ValueError:
        return f"signal {number}"
