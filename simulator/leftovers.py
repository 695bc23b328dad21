# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds what a box that is over has left behind, which must be nothing."""

from __future__ import annotations

import os
from pathlib import Path


class BoxNamespaces:
    """The namespaces that the process `box_pid` has made for its box.

    They are held open: the kernel gives the number of a namespace that is gone to the next one, so
    that without it the processes of another box would be taken for those of this one.
    """

    def __init__(self, box_pid: int) -> None:
        self._descriptors = [os.open(f"/proc/{box_pid}/ns/{kind}", os.O_RDONLY)
                             for kind in ("mnt", "pid_for_children", "ipc", "uts")]
        self._numbers = {os.fstat(descriptor).st_ino for descriptor in self._descriptors}

    def processes(self) -> list[int]:
        """The processes, seen from here, that live in one of them."""
        return [int(entry.name) for entry in Path("/proc").iterdir()
                if entry.name.isdecimal() and not self._numbers.isdisjoint(_namespaces(entry))]

    def close(self) -> None:
        """Let the kernel have them."""
        for descriptor in self._descriptors:
            os.close(descriptor)
        self._descriptors.clear()


def mounts_below(directory: Path) -> list[str]:
    """The mount points of the host that lie in `directory`."""
    lines = Path("/proc/self/mountinfo").read_text(encoding="utf-8").splitlines()
    mount_points = [line.split()[4] for line in lines]
    return [point for point in mount_points if Path(point).is_relative_to(directory)]


def _namespaces(process: Path) -> set[int]:
    try:
        return {(process / "ns" / kind).stat().st_ino for kind in ("mnt", "pid", "ipc", "uts")}
    except (FileNotFoundError, ProcessLookupError, PermissionError):
        return set()  # it has just ended, or belongs to somebody else
