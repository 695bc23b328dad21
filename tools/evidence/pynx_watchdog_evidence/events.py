# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the reader finds: events, each with its time and its source."""

from __future__ import annotations

from dataclasses import dataclass, field
from datetime import datetime, timedelta, timezone
from typing import Any


@dataclass(slots=True)
class Event:
    """Something that happened.

    `time` is local, or aware where the offset from UTC is known, or None. Without a time, the event
    happened after those that stand before it in its source.
    """

    kind: str
    time: datetime | None
    source: str  # the path, and for an archive "!" and the member
    line: int  # from 1; 0 where the source has no lines
    fields: dict[str, Any] = field(default_factory=dict)
    identity: object = None  # equal for one event that is found in two copies of a source

    def as_dict(self) -> dict[str, Any]:
        """The event with all its members, for JSON."""
        return {"kind": self.kind, "time": self.time and self.time.isoformat(),
                "source": self.source, "line": self.line, **self.fields}


def is_after(event: Event) -> bool:
    """Whether the event has no time of its own: it was at its time, if it has one, or after it."""
    return event.time is None or event.kind in ("request", "not_found") or "guard" in event.fields


def apart(earlier: Event, later: Event) -> timedelta | None:
    """The time from one event to another. One without an offset counts as local."""
    if earlier.time is None or later.time is None:
        return None
    if (earlier.time.tzinfo is None) != (later.time.tzinfo is None):
        return later.time.replace(tzinfo=None) - earlier.time.replace(tzinfo=None)
    return later.time - earlier.time


def possible(time: datetime) -> datetime | None:
    """The time, if a board can have it. With another one, Python cannot calculate."""
    return time if 1900 <= time.year <= 9000 else None


class Clock:
    """Brings the two kinds of time in a log to one: local time with its offset from UTC.

    The log's time lines are GMT, and all other times local, without an offset. The offset is found
    where a local time follows a time line, because the two are then at most seconds apart. That
    does not hold where the local time stands in a line that the application had begun: meanwhile no
    time line can be written.
    """

    STEP = timedelta(minutes=15)  # every offset is a multiple of this
    APART = timedelta(seconds=60)
    FARTHEST = timedelta(hours=14)

    def __init__(self, offset: timedelta | None = None) -> None:
        self.offset = offset
        self._gmt: datetime | None = None
        self._is_new = False  # no local time has followed the time line yet

    def note_time_line(self, text: str) -> None:
        """Note the time line `text`, such as "Sun Nov 22 10:00:00 2026"."""
        try:
            time = possible(datetime.strptime(text, "%a %b %d %H:%M:%S %Y"))
        except ValueError:
            return  # no time that the supervisor has written
        self._gmt = time or self._gmt
        self._is_new = time is not None

    def last_time_line(self) -> datetime | None:
        """The time of the last time line, in local time where the offset is known."""
        if self._gmt is None:
            return None
        gmt = self._gmt.replace(tzinfo=timezone.utc)
        return gmt if self.offset is None else gmt.astimezone(timezone(self.offset))

    def local(self, text: str, begins_line: bool = True, *,
              may_be_late: bool = False) -> datetime | None:
        """The local time `text`, such as "2026-11-22 10:00:00.123"; None if it is no time.

        If its line may have been written late, the clock may have been set meanwhile. Then only a
        change of summer time is believed.
        """
        try:
            time = possible(datetime.fromisoformat(text))
        except ValueError:
            return None
        if time is None:
            return None
        is_new, self._is_new = self._is_new, False
        if is_new and self._gmt and begins_line:
            offset = round((time - self._gmt) / self.STEP) * self.STEP
            changes = self.offset is not None and abs(offset - self.offset) > timedelta(hours=1)
            if abs(time - self._gmt - offset) < self.APART and abs(offset) <= self.FARTHEST \
                    and not (may_be_late and changes):
                self.offset = offset
        return time if self.offset is None else time.replace(tzinfo=timezone(self.offset))
