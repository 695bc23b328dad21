# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds where the clock of the board was set.

It is told as an event of kind `message`, with these fields: `clock_set`, the seconds by which the
clock was set, negative where it was set back; `clock_before` and `clock_after`, the times between
which that happened; and `clock_exact`, whether the seconds are known, or only that it was so many
or more.
"""

from __future__ import annotations

from collections.abc import Callable, Iterable, Iterator
from dataclasses import dataclass, field
from datetime import datetime, timedelta
from typing import Any

from .events import Event
from .words import duration

LEAST = timedelta(seconds=5)  # less may be the delay of a busy board
QUEUED = timedelta(seconds=60)  # how much later than its time an alarm may be written
SLOW_END = timedelta(seconds=90)  # how long an end may take to be told, where a tool hangs
SUMMER_TIME = timedelta(hours=1)
MOST = 100  # jumps that are put in order; more have no order

_NONE = timedelta()


def jump(source: str, line: int, before: datetime, after: datetime,
         size: timedelta | None = None) -> Event:
    """The clock was set between these two times. Without a size, at least from one to the other."""
    fields = _fields(after - before if size is None else size, size is not None,
                     after.tzinfo is None)
    return Event("message", after, source, line,
                 fields | {"clock_before": before.isoformat(), "clock_after": after.isoformat()},
                 ("clock", before, after))


def _fields(size: timedelta, is_exact: bool, is_local: bool) -> dict[str, Any]:
    text = f"clock set {'back' if size < _NONE else 'forward'} " \
        f"by {duration(abs(size).total_seconds())}" + ("" if is_exact else " or more")
    if abs(abs(size) - SUMMER_TIME) <= LEAST if is_exact else is_local and abs(size) <= SUMMER_TIME:
        text += ", or summer time has begun or ended"
    return {"text": text, "clock_set": size.total_seconds(), "clock_exact": is_exact}


class Readings:
    """The times in a source, in the order of its lines. An earlier one shows a clock that was set.

    Times without an offset are compared with each other only.
    """

    def __init__(self, source: str) -> None:
        self._source = source
        self._latest: dict[bool, datetime] = {}
        self._doubtful: tuple[int, datetime] | None = None

    def note(self, line: int, time: datetime | None, late: timedelta = _NONE) -> Iterator[Event]:
        """Note a time. It may be so much earlier than when its line was written.

        In that while the clock may have been set forward. So where such a time seems to show that
        it was set back, later ones have to show it, too.
        """
        if time is None:
            return
        is_local = time.tzinfo is None
        before = self._latest.get(is_local, time)
        if before - time > LEAST + late:
            first = self._doubtful[1] if self._doubtful else time
            if late and (is_local != (first.tzinfo is None) or time - first <= late):
                self._doubtful = self._doubtful or (line, time)
                return
            yield jump(self._source, line, before, time)
            self._latest.clear()
            before = time
        self._doubtful = None
        self._latest[is_local] = max(before, time)

    def rest(self) -> Iterator[Event]:
        """What nothing contradicts at the end."""
        if self._doubtful:
            line, time = self._doubtful
            yield jump(self._source, line, self._latest[time.tzinfo is None], time)

    def set(self, time: datetime | None) -> None:
        """Go on from this time, after a jump that was found in another way."""
        self._latest.clear()
        self._doubtful = None
        if time is not None:
            self._latest[time.tzinfo is None] = time


@dataclass(eq=False)
class _Jump:
    """A jump as all its sources know it. Times are in UTC."""

    before: datetime
    after: datetime
    size: timedelta
    is_exact: bool
    sources: set[str] = field(default_factory=set)
    archives: set[str] = field(default_factory=set)  # that have one of these sources
    was_told: bool = False

    def fits(self, other: _Jump, source: str) -> bool:
        """Whether `other`, which this source tells, can be this jump."""
        low, high = sorted((self.before, self.after))
        other_low, other_high = sorted((other.before, other.after))
        return (source not in self.sources or self._is_measured(other)) \
            and other_low <= high and low <= other_high \
            and (self.size < _NONE) == (other.size < _NONE) \
            and not (self.is_exact and other.is_exact and abs(self.size - other.size) > 2 * LEAST)

    def _is_measured(self, other: _Jump) -> bool:
        """Whether one of them has the size of both, as where an alarm in a log has measured what
        the times around it show.
        """
        if self.is_exact == other.is_exact:
            return False
        size = self.size if self.is_exact else other.size
        return abs(self.size - other.size) <= QUEUED \
            and max(self.before, other.before) + size <= min(self.after, other.after) + LEAST

    def take(self, other: _Jump) -> None:
        """Take in what another source tells of this jump."""
        if other.is_exact and not self.is_exact:
            self.size, self.is_exact = other.size, True
        self.widen(other.before, other.after)

    def widen(self, before: datetime, after: datetime) -> None:
        """Take in other times before and after it."""
        if self.size < _NONE:
            self.before, self.after = max(self.before, before), min(self.after, after)
        if not self.is_exact:
            self.size = self.after - self.before

    def add(self, source: str) -> None:
        """Add one of its sources."""
        self.sources.add(source)
        self.archives |= {source[:at] for at, letter in enumerate(source) if letter == "!"}


class Jumps:
    """All jumps, each once, and the order of the events of several sources despite them."""

    def __init__(self, events: Iterable[Event], utc: Callable[[datetime], datetime]) -> None:
        self._utc = utc
        self._jumps: list[_Jump] = []
        self._of: dict[int, list[_Jump]] = {}  # by the identity of the event
        self._passed: dict[str, list[_Jump]] = {}
        told = [event for event in events if "clock_set" in event.fields]
        # A source that tells little may have seen several jumps as one.
        for event in sorted(told, key=lambda event: abs(float(event.fields["clock_set"]))):
            if len(self._jumps) < MOST:
                self._add(event)
        self._back = [jump for jump in self._jumps if jump.size < _NONE]

    def _add(self, event: Event) -> None:
        known = event.fields
        found = _Jump(self._utc(datetime.fromisoformat(known["clock_before"])),
                      self._utc(datetime.fromisoformat(known["clock_after"])),
                      timedelta(seconds=known["clock_set"]), known["clock_exact"])
        same = [jump for jump in self._jumps if jump.fits(found, event.source)]
        if len(same) == 1:
            same[0].take(found)
        elif same:
            first = max(same, key=lambda jump: jump.before)
            first.widen(found.before, first.after)
            last = min(same, key=lambda jump: jump.after)
            last.widen(last.before, found.after)
        else:
            same = [found]
            self._jumps.append(found)
        for one in same:
            one.add(event.source)
        self._of[id(event)] = same

    def place(self, event: Event) -> datetime | None:
        """When the event was, by a clock that is never set back. All are asked for, in order."""
        passed = self._passed.setdefault(event.source, [])
        passed += self._of.get(id(event), [])
        if event.time is None:
            return None
        time = self._utc(event.time)
        back = [jump.size for jump in self._back
                if (jump in passed if event.source in jump.sources
                    # What the members of an archive tell was before it.
                    else event.source in jump.archives or time > jump.before)]
        return time - sum(back, _NONE)

    def is_first(self, event: Event) -> bool:
        """Whether this is no jump that was told already. It gets what all sources know of it."""
        jumps = self._of.get(id(event))
        if jumps is None:
            return True
        if len(jumps) > 1 or jumps[0].was_told:
            return False
        jumps[0].was_told = True
        event.fields |= _fields(jumps[0].size, jumps[0].is_exact,
                                bool(event.time and not event.time.tzinfo))
        return True

    def knows(self, before: datetime, after: datetime, size: timedelta) -> bool:
        """Whether a jump is known that this one can be."""
        found = _Jump(self._utc(before), self._utc(after), size, False)
        return any(jump.fits(found, "") for jump in self._jumps)


def with_jumps_by_uptime(events: Iterable[Event], jumps: Jumps) -> Iterator[Event]:
    """The events, and where an end tells another time since the start than the clock."""
    start: Event | None = None
    for event in events:
        if event.kind == "start":
            start = event
        elif event.kind == "reboot" or "clock_set" in event.fields:
            start = None
        elif event.kind == "end":
            if start and start.time and event.time and event.fields["uptime"] >= 0 \
                    and (start.time.tzinfo is None) == (event.time.tzinfo is None):
                size = event.time - start.time - timedelta(seconds=event.fields["uptime"])
                if (size < -LEAST or size > SLOW_END) and not jumps.knows(
                        start.time, event.time, size):
                    found = jump(event.source, event.line, start.time, event.time, size)
                    if size > _NONE:  # the end may be of a later run than this start
                        found.fields["text"] += ", or the log of a start is missing"
                    yield found
            start = None
        yield event
