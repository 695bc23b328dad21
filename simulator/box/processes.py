# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The processes of the box, and the commands that run there for the outer process."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path

from simulator.common.control import Process


def list_processes() -> list[Process]:
    """Every process, sorted by number; one that ends during the listing is left out."""
    numbers = sorted(int(entry.name) for entry in Path("/proc").iterdir() if entry.name.isdecimal())
    found = (read_process(number) for number in numbers)
    return [process for process in found if process is not None]


def read_process(pid: int) -> Process | None:
    """The process `pid`, or None if it does not exist."""
    try:
        stat = Path(f"/proc/{pid}/stat").read_text(encoding="utf-8", errors="backslashreplace")
        command_line = Path(f"/proc/{pid}/cmdline").read_bytes()
    except (FileNotFoundError, ProcessLookupError):
        return None
    # The name may contain blanks and parentheses, so it ends at the line's last parenthesis.
    comm = stat[stat.index("(") + 1:stat.rindex(")")]
    state, ppid = stat[stat.rindex(")") + 2:].split()[:2]
    words = command_line.rstrip(b"\0").split(b"\0") if command_line else []
    return Process(pid, int(ppid), comm, state,
                   [word.decode("utf-8", "backslashreplace") for word in words])


class Runs:
    """Starts commands and reports the end of each through the pipe in the request for it."""

    def __init__(self) -> None:
        self._running: dict[int, tuple[subprocess.Popen[bytes], int]] = {}

    def start(self, arguments: list[str], environment: dict[str, str],
              descriptors: list[int]) -> int:
        """Start a command on descriptors for input, output, errors and report; returns its id."""
        stdin, stdout, stderr, report = descriptors
        process = subprocess.Popen(arguments, stdin=stdin, stdout=stdout, stderr=stderr,
                                   start_new_session=True, env=environment, cwd="/")
        self._running[process.pid] = (process, os.dup(report))
        return process.pid

    def ended(self, pid: int, status: int) -> bool:
        """Note the end of a process of the box; returns whether it was one of these commands."""
        if pid not in self._running:
            return False
        process, report_fd = self._running.pop(pid)
        process.returncode = status
        try:
            os.write(report_fd, str(status).encode())
        except BrokenPipeError:
            pass  # the outer process no longer waits for the report
        os.close(report_fd)
        return True
