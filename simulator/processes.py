# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The processes that a /proc shows."""

from __future__ import annotations

from dataclasses import dataclass
from pathlib import Path


@dataclass(frozen=True)
class Process:
    """One process, with its numbers as the box counts them."""

    pid: int
    ppid: int
    comm: str
    state: str
    command_line: list[str]


def list_processes(proc: Path = Path("/proc")) -> list[Process]:
    """Every process, in the order of the numbers; one that ends meanwhile is left out."""
    numbers = sorted(int(entry.name) for entry in proc.iterdir() if entry.name.isdecimal())
    found = (read_process(number, proc) for number in numbers)
    return [process for process in found if process is not None]


def read_process(pid: int, proc: Path = Path("/proc")) -> Process | None:
    """The process `pid`, or None when there is none (any more)."""
    try:
        stat = (proc / str(pid) / "stat").read_text(encoding="utf-8", errors="backslashreplace")
        command_line = (proc / str(pid) / "cmdline").read_bytes()
    except (FileNotFoundError, ProcessLookupError):
        return None
    # The name may itself hold blanks and parentheses, so it ends at the last one of the line.
    comm = stat[stat.index("(") + 1:stat.rindex(")")]
    state, ppid = stat[stat.rindex(")") + 2:].split()[:2]
    words = command_line.rstrip(b"\0").split(b"\0") if command_line else []
    return Process(pid, int(ppid), comm, state,
                   [word.decode("utf-8", "backslashreplace") for word in words])
