# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Runs commands on a board, over a serial port of its own that keeps the console clear of them."""

from __future__ import annotations

import base64
import binascii
import socket
import threading
import time
from dataclasses import dataclass

from simulator import SimulatorError


class BoardGone(SimulatorError):
    """The board was reset, or lost its power, before it answered."""


@dataclass(frozen=True)
class Completed:
    """A script that has ended: its exit status and what it wrote to both its channels."""

    status: int
    output: bytes

    @property
    def text(self) -> str:
        """The output as text, without blanks around it."""
        return self.output.decode(errors="replace").strip()


@dataclass(frozen=True)
class Greeting:
    """A board that has come up: its boot's identity, and its monotonic clock beside the host's."""

    boot_id: str
    board_time: float
    host_time: float


class RemoteControl:
    """One power cycle's connection; a thread reads what the board answers."""

    def __init__(self, connection: socket.socket) -> None:
        self._connection = connection
        self._news = threading.Condition()
        self._greetings: list[Greeting] = []
        self._answers: dict[int, Completed] = {}
        self._requests = 0
        self._open = True
        threading.Thread(target=self._listen, daemon=True).start()

    @property
    def greetings(self) -> list[Greeting]:
        """One for each time that the board came up."""
        with self._news:
            return list(self._greetings)

    def wait_for_greeting(self, count: int, timeout: float) -> Greeting:
        """The count-th greeting of this power cycle."""
        with self._news:
            self._news.wait_for(lambda: len(self._greetings) >= count or not self._open, timeout)
            if len(self._greetings) < count:
                raise SimulatorError(f"not within {timeout} s: boot {count} of the board"
                                     if self._open else "the power is off")
            return self._greetings[count - 1]

    def run(self, script: str, timeout: float) -> Completed:
        """Run a shell script. Raises BoardGone when the board is reset meanwhile."""
        with self._news:
            self._requests += 1
            number = self._requests
            boots = len(self._greetings)
        request = f"{number} {base64.b64encode(script.encode()).decode()}\n"
        try:
            self._connection.sendall(request.encode())
        except OSError as error:
            raise BoardGone(f"the power is off: {script}") from error

        def settled() -> bool:
            return number in self._answers or len(self._greetings) != boots or not self._open

        with self._news:
            self._news.wait_for(settled, timeout)
            if number in self._answers:
                return self._answers.pop(number)
            if settled():
                raise BoardGone(f"the board was reset before it had run: {script}")
            raise SimulatorError(f"not within {timeout} s: the board has run: {script}")

    def close(self) -> None:
        """Wake whoever still waits."""
        with self._news:
            self._open = False
            self._news.notify_all()

    def _listen(self) -> None:
        with self._connection, self._connection.makefile(
                "r", encoding="utf-8", errors="replace") as lines:
            try:
                for line in lines:
                    self._take(line.split())
            except OSError:
                pass  # the emulator is gone
        self.close()

    def _take(self, words: list[str]) -> None:
        with self._news:
            if len(words) == 3 and words[0] == "ready":
                self._greetings.append(Greeting(words[2], float(words[1]), time.monotonic()))
            elif len(words) in (2, 3) and words[0].isdecimal() and words[1].isdecimal():
                try:
                    output = base64.b64decode(words[2]) if len(words) == 3 else b""
                except binascii.Error:
                    return  # torn by a reset
                self._answers[int(words[0])] = Completed(int(words[1]), output)
            self._news.notify_all()
