# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Follows a log file that grows, is rotated, or is not there yet."""

from __future__ import annotations

import io
import os
from collections.abc import Callable

from simulator.supervisor import LineSplitter

LINES_AT_A_TIME = 30  # an alarm of three seconds with its threads has 25


class LogFollower:
    """Gives the lines that are new since the last look, a limited number each time.

    `open_file` opens the file as it is at that moment, and raises OSError while there is none.
    """

    def __init__(self, open_file: Callable[[], io.BufferedReader]) -> None:
        self._open_file = open_file
        self._file: io.BufferedReader | None = None
        self._lines = LineSplitter()

    def poll(self) -> tuple[list[str], int]:
        """The new lines to show, and how many more there were."""
        lines = self._read_on()
        try:
            current = self._open_file()
        except OSError:
            current = None
        if current is not None and self._is_other(current):
            # What was written to the old file between the read above and its rotation comes first.
            lines += self._read_on() + self._lines.finish()
            self.close()
            self._file = current
            lines += self._read_on()
        elif current is not None:
            current.close()
        shown = [line.decode("utf-8", "backslashreplace") for line in lines[:LINES_AT_A_TIME]]
        return shown, len(lines) - len(shown)

    def close(self) -> None:
        """Stop following."""
        if self._file is not None:
            self._file.close()
            self._file = None

    def _is_other(self, current: io.BufferedReader) -> bool:
        return self._file is None or not os.path.samestat(
            os.fstat(current.fileno()), os.fstat(self._file.fileno()))

    def _read_on(self) -> list[bytes]:
        if self._file is None:
            return []
        if os.fstat(self._file.fileno()).st_size < self._file.tell():
            self._file.seek(0)  # it was emptied
        return self._lines.feed(self._file.read())
