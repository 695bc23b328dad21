# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the board's kernel saw of the watchdog device, read from its trace."""

from __future__ import annotations

import re
from dataclasses import dataclass

_EVENT = re.compile(r"^\s*(?P<task>.+)-(?P<pid>\d+)\s+\[\d+\] \S+\s+(?P<time>\d+\.\d+): "
                    r"(?P<name>watchdog_\w+): (?P<text>.*)$")


@dataclass(frozen=True)
class DeviceEvent:
    """One event of the watchdog device; `time` is the board's monotonic clock in seconds."""

    name: str
    time: float
    pid: int
    text: str


@dataclass(frozen=True)
class BootTrace:
    """The events of one boot."""

    boot_id: str
    events: tuple[DeviceEvent, ...]

    @property
    def feeds(self) -> list[float]:
        """When the device was fed."""
        return [event.time for event in self.events if event.name == "watchdog_ping"]

    def gaps(self, until: float | None = None) -> list[float]:
        """Seconds from each feed to the next, and from the last one to `until`."""
        times = self.feeds + ([] if until is None else [until])
        return [later - earlier for earlier, later in zip(times, times[1:])]


def parse(text: str) -> list[BootTrace]:
    """The boots in a trace, oldest first; a line that a reset has torn is left out."""
    boots: list[tuple[str, list[DeviceEvent]]] = []
    for line in text.splitlines():
        if line.startswith("boot "):
            boots.append((line.removeprefix("boot "), []))
        elif (found := _EVENT.match(line)) and boots:
            boots[-1][1].append(DeviceEvent(found["name"], float(found["time"]),
                                            int(found["pid"]), found["text"]))
    return [BootTrace(boot_id, tuple(events)) for boot_id, events in boots]
