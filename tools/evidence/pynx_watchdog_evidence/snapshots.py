# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Reads the snapshots of the system: what top and free have printed, oldest first."""

from __future__ import annotations

import math
import re
from collections.abc import Iterator, Mapping, Sequence
from datetime import time
from typing import Any, NamedTuple


class Snapshot(NamedTuple):
    """One picture of the system."""

    line: int  # where it begins, from 1
    clock: time | None  # local, without a date; busybox's top prints none
    load_average: list[float] | None
    processes: list[dict[str, Any]]
    text: str


# The first line of procps's top, and of busybox's.
_BEGIN = re.compile(r"^(?:top - (?P<clock>\d\d:\d\d:\d\d)|Mem: \d)", re.MULTILINE)
_NUMBER = r"(\d{1,9}(?:\.\d{1,9})?)"
_LOAD = re.compile(rf"[Ll]oad average: *{_NUMBER}[, ]+{_NUMBER}[, ]+{_NUMBER}")
_LONGEST_PID = 18  # digits


def looks_like_snapshots(text: str) -> bool:
    """Whether a file that begins with `text` has snapshots."""
    return _BEGIN.match(text) is not None


def snapshots(text: str) -> Iterator[Snapshot]:
    """The snapshots in `text`."""
    begins = [found.start() for found in _BEGIN.finditer(text)]
    for begin, end in zip(begins, [*begins[1:], len(text)]):
        part = text[begin:end]
        found = _BEGIN.match(part)
        clock = _clock(found["clock"]) if found and found["clock"] else None
        load = _LOAD.search(part)
        yield Snapshot(text.count("\n", 0, begin) + 1, clock,
                       [float(load[1]), float(load[2]), float(load[3])] if load else None,
                       list(_processes(part)), part)


def busiest(processes: Sequence[Mapping[str, Any]]) -> Mapping[str, Any] | None:
    """The process with the highest load, if any has one."""
    busy = [row for row in processes if row["cpu"]]
    return max(busy, key=lambda row: float(row["cpu"])) if busy else None


def _processes(text: str) -> Iterator[dict[str, Any]]:
    columns: list[str] = []
    for line in text.splitlines():
        words = line.split()
        if "PID" in words and "COMMAND" in words:
            columns = words
        elif columns and words and len(words) >= len(columns) \
                and words[0].isdecimal() and len(words[0]) <= _LONGEST_PID:
            cells = line.split(None, len(columns) - 1)
            row = {name.strip("%+").lower(): cell.strip() for name, cell in zip(columns, cells)
                   if name != "%VSZ"}
            # busybox has the number of the processor in CPU, and the load in %CPU as procps has.
            load = cells[columns.index("%CPU")].rstrip("%") if "%CPU" in columns else ""
            yield row | {"pid": int(words[0]), "cpu": _number(load), "command": cells[-1].strip()}
        elif columns and not words:
            columns = []


def _number(text: str) -> float | None:
    try:
        return float(text) if math.isfinite(float(text)) else None
    except ValueError:
        return None


def _clock(text: str) -> time | None:
    try:
        return time.fromisoformat(text)
    except ValueError:
        return None
