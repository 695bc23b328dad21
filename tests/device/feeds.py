# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The kernel's events of the watchdog device and of the application, read from its trace."""

from __future__ import annotations

import re
from dataclasses import dataclass, field
from datetime import datetime, timedelta, timezone

_BOOT = re.compile(r"boot (?P<wall>\d+\.\d+) (?P<time>\d+\.\d+)$")
_EVENT = re.compile(r"^\s*(?P<task>.+)-(?P<pid>\d+)\s+\[\d+\] \S+\s+(?P<time>\d+\.\d+): "
                    r"(?P<name>\w+): (?P<text>.*)$")


@dataclass(frozen=True)
class KernelEvent:
    """An event that the kernel has traced; `time` is the board's monotonic clock in seconds."""

    name: str
    time: float
    pid: int
    text: str


@dataclass(frozen=True)
class BootTrace:
    """The events of one boot."""

    booted: datetime
    """What the board's clock told when its monotonic clock began."""
    events: list[KernelEvent] = field(default_factory=list)
    """Those of the watchdog device."""
    processes: list[KernelEvent] = field(default_factory=list)
    """Forks of the supervisor, programs that were started, and ends of the application."""

    def at(self, time: float) -> datetime:
        """What the board's clock told at this time of the monotonic clock."""
        return self.booted + timedelta(seconds=time)

    @property
    def feeds(self) -> list[float]:
        """When the device was fed."""
        return [event.time for event in self.events if event.name == "watchdog_ping"]


def parse(text: str) -> list[BootTrace]:
    """The boots in a trace, the oldest first. A line that a reset has cut is left out."""
    boots: list[BootTrace] = []
    for line in text.splitlines():
        if found := _BOOT.match(line):
            began = datetime.fromtimestamp(float(found["wall"]), timezone.utc)
            boots.append(BootTrace(began - timedelta(seconds=float(found["time"]))))
        elif (found := _EVENT.match(line)) and boots:
            of_device = found["name"].startswith("watchdog_")
            (boots[-1].events if of_device else boots[-1].processes).append(KernelEvent(
                found["name"], float(found["time"]), int(found["pid"]), found["text"]))
    return boots
