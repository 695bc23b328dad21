# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The emulator's monitor, which reports the events of the board's hardware."""

from __future__ import annotations

import json
import socket
import threading
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from simulator import SimulatorError

RESET = "RESET"
WATCHDOG = "WATCHDOG"


@dataclass(frozen=True)
class HardwareEvent:
    """An event of the board's hardware; `time` is the host's monotonic clock in seconds."""

    index: int
    name: str
    data: dict[str, Any]
    time: float


class Monitor:
    """Collects the events of a board's hardware over all power cycles, in a thread of its own."""

    def __init__(self, record: Path) -> None:
        self._record = record
        self._news = threading.Condition()
        self._events: list[HardwareEvent] = []

    def attach(self, connection: socket.socket) -> None:
        """Listen to an emulator. The thread ends with the connection and closes it."""
        connection.sendall(b'{"execute": "qmp_capabilities"}\n')
        threading.Thread(target=self._listen, args=(connection,), daemon=True).start()

    def note(self, name: str, **data: Any) -> None:
        """Add an event for something that a test does to the hardware, such as a power cut."""
        self._add(name, data)

    @property
    def events(self) -> list[HardwareEvent]:
        """All events so far."""
        with self._news:
            return list(self._events)

    def wait_for(self, name: str, after: int, timeout: float) -> HardwareEvent:
        """Wait for the first event of this name whose index is not less than `after`."""
        def found() -> HardwareEvent | None:
            return next((event for event in self._events[after:] if event.name == name), None)

        with self._news:
            self._news.wait_for(lambda: found() is not None, timeout)
            event = found()
            if event is None:
                seen = ", ".join(event.name for event in self._events[after:]) or "nothing"
                raise SimulatorError(
                    f"not within {timeout} s: {name} of the hardware; seen: {seen}")
            return event

    def _listen(self, connection: socket.socket) -> None:
        with connection, connection.makefile("r", encoding="utf-8") as lines:
            try:
                for line in lines:
                    message = json.loads(line)
                    if "event" in message:
                        self._add(message["event"], message.get("data", {}))
            except (OSError, ValueError):
                pass  # the emulator has ended, perhaps in the middle of a line

    def _add(self, name: str, data: dict[str, Any]) -> None:
        with self._news:
            event = HardwareEvent(len(self._events), name, data, time.monotonic())
            self._events.append(event)
            with self._record.open("a", encoding="utf-8") as file:
                file.write(f"{event.time:.3f} {name} {json.dumps(data)}\n")
            self._news.notify_all()
