# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The account: what happened on the simulated device, one record an event.

The board appends to one file of JSON lines and everybody else reads that file, so that a reader
that is busy, stopped or gone can never hold the board up. A byte on the doorbell pipe tells a
waiting reader that there is something new.
"""

from __future__ import annotations

import json
import os
import time
from dataclasses import dataclass, field
from typing import Any

BOOT_LOADER = "boot loader"
SUPERVISOR = "supervisor"
SYSTEM_LOG = "system log"
TOOL = "tool"
WATCHDOG_DEVICE = "watchdog device"
SIMULATOR = "simulator"

SOURCES = (BOOT_LOADER, SUPERVISOR, SYSTEM_LOG, TOOL, WATCHDOG_DEVICE, SIMULATOR)


@dataclass(frozen=True)
class Event:
    """One record of the account.

    `monotonic` is the host's CLOCK_MONOTONIC in seconds; differences of it are what a test may rely
    on. Further facts (the arguments of a tool, the name of an ioctl) are in `fields`, for which
    `event["name"]` is short. Every event has the field "boot", the number of the boot it belongs
    to, counted from 1.
    """

    index: int
    wall: float
    monotonic: float
    source: str
    text: str
    fields: dict[str, Any] = field(default_factory=dict)

    @classmethod
    def parse(cls, index: int, line: bytes) -> "Event":
        """The event that AccountWriter has written as this line."""
        entry = json.loads(line)
        return cls(index, entry.pop("wall"), entry.pop("monotonic"), entry.pop("source"),
                   entry.pop("text"), entry)

    def __getitem__(self, name: str) -> Any:
        return self.fields[name]

    def get(self, name: str, default: Any = None) -> Any:
        """The further fact `name`, or `default` where this event has none of that name."""
        return self.fields.get(name, default)

    def __str__(self) -> str:
        facts = "".join(f" {name}={value!r}" for name, value in self.fields.items())
        return f"#{self.index} {self.monotonic:.3f} [{self.source}] {self.text}{facts}"


class AccountWriter:
    """The board's end: appends records, each with one write so that readers see whole lines."""

    def __init__(self, account_fd: int, doorbell_fd: int) -> None:
        self._account_fd = account_fd
        self._doorbell_fd = doorbell_fd
        self.boot = 0

    def record(self, source: str, text: str, **fields: Any) -> None:
        """Append one event that happened now."""
        entry = {"wall": time.time(), "monotonic": time.monotonic(), "source": source, "text": text,
                 "boot": self.boot, **fields}
        line = memoryview(json.dumps(entry).encode() + b"\n")
        while line:
            line = line[os.write(self._account_fd, line):]
        try:
            os.write(self._doorbell_fd, b"!")
        except (BlockingIOError, BrokenPipeError):
            pass  # it has rung already and nobody has come yet, or nobody listens any more
