# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds what a box that is over has left behind, which must be nothing."""

from __future__ import annotations

import os
from pathlib import Path


class Trace:
    """Remembers a box, to look for remains of it afterwards.

    It holds the box' process namespace open, because the kernel gives the number of one that is
    gone to the next, which may be that of another box. An empty one holds nothing else up.
    """

    def __init__(self, box_pid: int, directory: Path) -> None:
        self._directory = directory
        self._namespace_fd = os.open(f"/proc/{box_pid}/ns/pid_for_children", os.O_RDONLY)

    def remains(self) -> list[str]:
        """Processes of the box, and mounts of the host below the device directory."""
        namespace = os.fstat(self._namespace_fd)
        found = [f"process {process.name}" for process in Path("/proc").iterdir()
                 if process.name.isdecimal() and _lives_in(process, namespace)]
        for line in Path("/proc/self/mountinfo").read_text(encoding="utf-8").splitlines():
            mount_point = line.split()[4]
            if Path(mount_point).is_relative_to(self._directory):
                found.append(f"mount {mount_point}")
        return found

    def close(self) -> None:
        """Let the kernel forget the box."""
        os.close(self._namespace_fd)


def _lives_in(process: Path, namespace: os.stat_result) -> bool:
    try:
        return os.path.samestat(os.stat(process / "ns" / "pid"), namespace)
    except (FileNotFoundError, ProcessLookupError, PermissionError):
        return False  # it has just ended, or belongs to somebody else
