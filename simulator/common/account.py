# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The account: a record for each event on the simulated device.

The board appends the records to a file of JSON lines, which all others read. So a reader that is
busy, stopped or gone cannot delay the board. A byte in the doorbell pipe tells a waiting reader
that there is a new record.
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
CHECK = "check"
SIMULATOR = "simulator"

SOURCES = (BOOT_LOADER, SUPERVISOR, SYSTEM_LOG, TOOL, WATCHDOG_DEVICE, CHECK, SIMULATOR)


@dataclass(frozen=True)
class Event:
    """A record of the account.

    `monotonic` is the host's CLOCK_MONOTONIC in seconds. A test compares times by it, because the
    wall clock may be set. `fields` has further facts, such as the arguments of a tool or the name
    of an ioctl; `event["name"]` is short for `event.fields["name"]`. Every event has the field
    "boot", the number of its boot, counted from 1.
    """

    index: int
    wall: float
    monotonic: float
    source: str
    text: str
    fields: dict[str, Any] = field(default_factory=dict)

    @classmethod
    def parse(cls, index: int, line: bytes) -> "Event":
        """The event in a line that AccountWriter has written."""
        entry = json.loads(line)
        return cls(index, entry.pop("wall"), entry.pop("monotonic"), entry.pop("source"),
                   entry.pop("text"), entry)

    def __getitem__(self, name: str) -> Any:
        return self.fields[name]

    def get(self, name: str, default: Any = None) -> Any:
        """The field `name`, or `default` if this event has no such field."""
        return self.fields.get(name, default)

    def __str__(self) -> str:
        facts = "".join(f" {name}={value!r}" for name, value in self.fields.items())
        return f"#{self.index} {self.monotonic:.3f} [{self.source}] {self.text}{facts}"


class AccountWriter:
    """Appends records, each with one write, so that readers see whole lines."""

    def __init__(self, account_fd: int, doorbell_fd: int) -> None:
        self._account_fd = account_fd
        self._doorbell_fd = doorbell_fd
        self.boot = 0

    def record(self, source: str, text: str, **fields: Any) -> None:
        """Append an event that happens now."""
        entry = {"wall": time.time(), "monotonic": time.monotonic(), "source": source, "text": text,
                 "boot": self.boot, **fields}
        line = memoryview(json.dumps(entry).encode() + b"\n")
        while line:
            line = line[os.write(self._account_fd, line):]
        try:
            os.write(self._doorbell_fd, b"!")
        except (BlockingIOError, BrokenPipeError):
            pass  # the pipe is full, so a reader will be woken anyway, or there is no reader
