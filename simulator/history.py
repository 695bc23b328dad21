# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds events that have happened on a device, and waits for events to come."""

from __future__ import annotations

import re
import time
from collections.abc import Callable, Mapping
from pathlib import Path
from typing import Any, TypeVar

from simulator.common import SimulatorError
from simulator.common.account import Event

DEFAULT_TIMEOUT = 60.0
"""Seconds to wait for an event; generous, because a busy machine must not fail a test."""

_LOOKS_APART = 0.02

Found = TypeVar("Found")
Text = str | re.Pattern[str] | None


def wait_until(look: Callable[[], Found | None], what: str,
               timeout: float = DEFAULT_TIMEOUT) -> Found:
    """Call `look` again and again until its result is true, and return that.

    This is for changes that no event announces, such as a file that grows. After `timeout` seconds
    it raises SimulatorError with `what` and the last result.
    """
    deadline = time.monotonic() + timeout
    while not (found := look()):
        if time.monotonic() > deadline:
            raise SimulatorError(f"not within {timeout} s: {what}; seen last: {found!r}")
        time.sleep(_LOOKS_APART)
    return found


class History:
    """The events of one device since its start.

    `wait_for_news` waits at most the given seconds for the account to grow. It returns False when
    the account cannot grow any more.
    """

    def __init__(self, account: Path, wait_for_news: Callable[[float], bool]) -> None:
        self._account = account
        self._offset = 0
        self._wait_for_news = wait_for_news
        self._events: list[Event] = []

    def begin(self) -> None:
        """Skip the events of an earlier start of the device."""
        if not self._events and self._account.exists():
            self._offset = self._account.stat().st_size

    def read(self) -> list[Event]:
        """Read the new events and return them."""
        try:
            with self._account.open("rb") as account:
                account.seek(self._offset)
                data = account.read()
        except FileNotFoundError:
            return []
        complete = data[:data.rfind(b"\n") + 1]
        self._offset += len(complete)
        news = [Event.parse(index, line)
                for index, line in enumerate(complete.splitlines(), len(self._events))]
        self._events += news
        return news

    def events(self, source: str | None, text: Text, fields: Mapping[str, Any]) -> list[Event]:
        """The events so far that match."""
        self.read()
        return [event for event in self._events if _matches(event, source, text, fields)]

    def wait_for(self, source: str | None, text: Text, fields: Mapping[str, Any], count: int,
                 after: Event | None, timeout: float) -> Event:
        """The count-th matching event after `after`; see `Device.wait_for`."""
        deadline = time.monotonic() + timeout
        position = after.index + 1 if after else 0
        can_come = True
        while True:
            self.read()
            for event in self._events[position:]:
                position = event.index + 1
                count -= _matches(event, source, text, fields)
                if count == 0:
                    return event
            wanted = f"{count} more of source={source!r} text={text!r} {fields or ''}"
            if not can_come or any(event.get("end") for event in self._events):
                raise self._missing(f"the simulation has ended before: {wanted}")
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                raise self._missing(f"not within {timeout} s: {wanted}")
            can_come = self._wait_for_news(remaining)

    def tail(self, lines: int = 60) -> str:
        """The end of the account, for messages."""
        self.read()
        return "\n".join(map(str, self._events[-lines:]))

    def _missing(self, what: str) -> SimulatorError:
        return SimulatorError(f"{what}\nThe account ends with:\n{self.tail()}")


def _matches(event: Event, source: str | None, text: Text,
             fields: Mapping[str, Any]) -> bool:
    if source is not None and event.source != source:
        return False
    if isinstance(text, re.Pattern):
        if not text.search(event.text):
            return False
    elif text is not None and text not in event.text:
        return False
    return all(name in event.fields and event.fields[name] == value
               for name, value in fields.items())
