# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The kernel's events of the board's watchdog device, read from its trace."""

from __future__ import annotations

import re
from dataclasses import dataclass

_EVENT = re.compile(r"^\s*(?P<task>.+)-(?P<pid>\d+)\s+\[\d+\] \S+\s+(?P<time>\d+\.\d+): "
                    r"(?P<name>watchdog_\w+): (?P<text>.*)$")


@dataclass(frozen=True)
class DeviceEvent:
    """An event of the watchdog device; `time` is the board's monotonic clock in seconds."""

    name: str
    time: float
    pid: int
    text: str


@dataclass(frozen=True)
class BootTrace:
    """The events of one boot."""

    events: list[DeviceEvent]

    @property
    def feeds(self) -> list[float]:
        """When the device was fed."""
        return [event.time for event in self.events if event.name == "watchdog_ping"]


def parse(text: str) -> list[BootTrace]:
    """The boots in a trace, the oldest first. A line that a reset has cut is left out."""
    boots: list[BootTrace] = []
    for line in text.splitlines():
        if line == "boot":
            boots.append(BootTrace([]))
        elif (found := _EVENT.match(line)) and boots:
            boots[-1].events.append(DeviceEvent(found["name"], float(found["time"]),
                                                int(found["pid"]), found["text"]))
    return boots
