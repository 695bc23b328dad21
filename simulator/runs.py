# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Commands that the outer process has run in the box."""

from __future__ import annotations

import os
import subprocess


class Runs:
    """Starts commands, and reports the end of each on the pipe that came with it."""

    def __init__(self) -> None:
        self._running: dict[int, tuple[subprocess.Popen[bytes], int]] = {}

    def start(self, arguments: list[str], environment: dict[str, str],
              descriptors: list[int]) -> int:
        """Start a command on descriptors for input, output, errors and the report; its number."""
        stdin, stdout, stderr, report = descriptors
        process = subprocess.Popen(arguments, stdin=stdin, stdout=stdout, stderr=stderr,
                                   start_new_session=True, env=environment, cwd="/")
        self._running[process.pid] = (process, os.dup(report))
        return process.pid

    def ended(self, pid: int, status: int) -> bool:
        """A process of the box has ended; returns whether it was one of these."""
        if pid not in self._running:
            return False
        process, report_fd = self._running.pop(pid)
        process.returncode = status
        try:
            os.write(report_fd, str(status).encode())
        except BrokenPipeError:
            pass  # whoever wanted to know has given up
        os.close(report_fd)
        return True
