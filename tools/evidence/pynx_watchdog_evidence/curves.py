# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What was measured, as curves: the load in the alarms, and the memory."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass, field

from .events import Event

MOST_PROCESSES = 8
MOST_THREADS = 12
LONGEST_INTERVAL = 600_000  # ms; a text that tells more is wrong
LARGEST = 1e15  # of a value; a text that tells more is wrong


@dataclass
class Curve:
    """Values at times, in milliseconds. None is a gap."""

    name: str
    kind: str  # process, thread, threshold or memory
    points: dict[int, float | None] = field(default_factory=dict)

    def add(self, time: int, value: float | None) -> None:
        """Add a point. A value that is there stays if there is none now."""
        if value is not None and abs(value) < LARGEST:
            self.points[time] = value
        else:
            self.points.setdefault(time, None)

    def most(self) -> float:
        """The largest value."""
        return max((value for value in self.points.values() if value is not None), default=-1)


def load_curves(events: Sequence[Event], times: Sequence[int | None]) -> list[Curve]:
    """The load of the busiest processes with their thresholds, and of the busiest threads."""
    processes: dict[str, Curve] = {}
    thresholds: dict[str, Curve] = {}
    threads: dict[tuple[str, str], Curve] = {}
    for event, time in zip(events, times):
        if event.kind != "alarm" or time is None or not event.fields["samples"]:
            continue
        name = event.fields["process"] or "ended process"
        process = processes.setdefault(name, Curve(name, "process"))
        threshold = thresholds.setdefault(name, Curve(name, "threshold"))
        at = _times_of_samples(event, time)
        for curve in process, threshold:
            curve.add(at[0] - 1, None)
        for moment in at[0], at[-1]:
            threshold.add(moment, event.fields["threshold"])
        for moment, sample in zip(at, event.fields["samples"]):
            process.add(moment, None if "ended" in sample else sample.get("load"))
            for thread in sample.get("threads", []):
                key = name, thread["name"]
                if key not in threads:
                    threads[key] = Curve(f"{name}: thread {thread['name']}", "thread")
                threads[key].add(moment, thread["load"])
    # A thread that is not among the five busiest of a second has a gap there.
    for (name, _), curve in threads.items():
        for moment in processes[name].points:
            curve.add(moment, None)
    found = _busiest(list(processes.values()), MOST_PROCESSES)
    return [*found, *(thresholds[curve.name] for curve in found),
            *_busiest(list(threads.values()), MOST_THREADS)]


def memory_curves(events: Sequence[Event], times: Sequence[int | None]) -> list[Curve]:
    """The unused memory and what the caches take, in MiB."""
    free, cache = Curve("unused", "memory"), Curve("buffers and cache", "memory")
    for event, time in zip(events, times):
        if event.kind == "memory" and time is not None:
            for curve, kib in (free, event.fields["free_kib"]), (cache, event.fields["cache_kib"]):
                curve.add(time, kib / 1024 if kib < LARGEST else None)
    return [free, cache] if free.points else []


def _times_of_samples(event: Event, time: int) -> list[int]:
    """When each sample was taken: the last one at the alarm's own time."""
    times = [time]
    for sample in reversed(event.fields["samples"][1:]):
        times.append(times[-1] - min(max(sample["interval_ms"], 1), LONGEST_INTERVAL))
    return times[::-1]


def _busiest(curves: list[Curve], most: int) -> list[Curve]:
    return sorted(curves, key=Curve.most, reverse=True)[:most]
