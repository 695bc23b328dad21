# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Runs commands on an emulated board, over a serial port that is not the console's."""

from __future__ import annotations

import base64
import binascii
import socket
import threading
from dataclasses import dataclass

from simulator import SimulatorError


class BoardGone(SimulatorError):
    """The board was reset or lost its power before it answered."""


@dataclass(frozen=True)
class Completed:
    """A script that has ended: its exit status and what it has written to both channels."""

    status: int
    output: bytes

    @property
    def text(self) -> str:
        """The output as text, without blanks around it."""
        return self.output.decode(errors="replace").strip()


class RemoteControl:
    """The connection of one power cycle. A thread reads the board's answers."""

    def __init__(self, connection: socket.socket) -> None:
        self._connection = connection
        self._news = threading.Condition()
        self._boots = 0
        self._answers: dict[int, Completed] = {}
        self._requests = 0
        self._open = True
        threading.Thread(target=self._listen, daemon=True).start()

    def wait_for_boot(self, count: int, timeout: float) -> None:
        """Wait until the board has come up `count` times in this power cycle."""
        with self._news:
            self._news.wait_for(lambda: self._boots >= count or not self._open, timeout)
            if self._boots < count:
                raise SimulatorError(f"not within {timeout} s: boot {count} of the board"
                                     if self._open else "the power is off")

    def run(self, script: str, timeout: float) -> Completed:
        """Run a shell script. Raises BoardGone if the board is reset before the script ends."""
        with self._news:
            self._requests += 1
            number = self._requests
            boots = self._boots
        request = f"{number} {base64.b64encode(script.encode()).decode()}\n"
        try:
            self._connection.sendall(request.encode())
        except OSError as error:
            raise BoardGone(f"the power is off: {script}") from error

        def settled() -> bool:
            return number in self._answers or self._boots != boots or not self._open

        with self._news:
            self._news.wait_for(settled, timeout)
            if number in self._answers:
                return self._answers.pop(number)
            if settled():
                raise BoardGone(f"the board was reset before it had run: {script}")
            raise SimulatorError(f"not within {timeout} s: the board has run: {script}")

    def close(self) -> None:
        """Wake the threads that still wait."""
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
                pass  # the emulator has ended
        self.close()

    def _take(self, words: list[str]) -> None:
        with self._news:
            if words == ["ready"]:
                self._boots += 1
            elif len(words) in (2, 3) and words[0].isdecimal() and words[1].isdecimal():
                try:
                    output = base64.b64decode(words[2]) if len(words) == 3 else b""
                except binascii.Error:
                    return  # a reset has cut the line
                self._answers[int(words[0])] = Completed(int(words[1]), output)
            self._news.notify_all()
