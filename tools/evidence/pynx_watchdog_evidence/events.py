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


class Clock:
    """Brings the two kinds of time in a log to one: local time with its offset from UTC.

    The log's time lines are GMT, and all other times local, without an offset. The offset is found
    where a local time follows a time line, because the two are then at most some seconds apart.
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
            self._gmt = datetime.strptime(text, "%a %b %d %H:%M:%S %Y")
            self._is_new = True
        except ValueError:
            pass  # no time that the supervisor has written

    def last_time_line(self) -> datetime | None:
        """The time of the last time line, in local time where the offset is known."""
        if self._gmt is None:
            return None
        gmt = self._gmt.replace(tzinfo=timezone.utc)
        return gmt if self.offset is None else gmt.astimezone(timezone(self.offset))

    def local(self, text: str) -> datetime | None:
        """The local time `text`, such as "2026-11-22 10:00:00.123"; None if it is no time."""
        try:
            time = datetime.fromisoformat(text)
        except ValueError:
            return None
        if self._is_new and self._gmt:
            self._is_new = False
            offset = round((time - self._gmt) / self.STEP) * self.STEP
            if abs(time - self._gmt - offset) < self.APART and abs(offset) <= self.FARTHEST:
                self.offset = offset
        return time if self.offset is None else time.replace(tzinfo=timezone(self.offset))
