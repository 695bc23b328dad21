# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds what a box that is over has left behind, which must be nothing."""

from __future__ import annotations

import os
from pathlib import Path


def namespaces_of(box_pid: int) -> frozenset[str]:
    """The namespaces made by the process that holds a box, as names that identify them."""
    return frozenset(os.readlink(f"/proc/{box_pid}/ns/{kind}")
                     for kind in ("mnt", "pid_for_children", "ipc", "uts"))


def find(namespaces: frozenset[str], directory: Path) -> list[str]:
    """Processes that live in one of the namespaces, and mounts of the host below `directory`."""
    found = []
    for process in Path("/proc").iterdir():
        if process.name.isdecimal() and not namespaces.isdisjoint(_namespaces(process)):
            found.append(f"process {process.name}")
    for line in Path("/proc/self/mountinfo").read_text(encoding="utf-8").splitlines():
        mount_point = line.split()[4]
        if Path(mount_point).is_relative_to(directory):
            found.append(f"mount {mount_point}")
    return found


def _namespaces(process: Path) -> set[str]:
    try:
        return {os.readlink(process / "ns" / kind) for kind in ("mnt", "pid", "ipc", "uts")}
    except (FileNotFoundError, ProcessLookupError, PermissionError):
        return set()  # it has just ended, or belongs to somebody else
