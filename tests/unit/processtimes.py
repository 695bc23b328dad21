#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""An independent reading of the load of one process and of its threads.

processtimes.py PID: takes a first reading, then one more for every line on standard input, and
prints the loads between the last two, in percent of all processors' time together, as one line of
JSON: {"process": load, "threads": [{"name": name, "load": load}, ...]}. An empty object follows the
first reading.
"""

from __future__ import annotations

import json
import pathlib
import sys
from typing import Any, NamedTuple


class Reading(NamedTuple):
    """What has been used so far, in clock ticks."""

    machine: int
    process: int
    threads: dict[str, tuple[str, int]]  # by id: name and ticks


def machine_ticks() -> int:
    with open("/proc/stat", encoding="ascii") as stat:
        return sum(map(int, stat.readline().split()[1:11]))


def name_and_ticks(stat: pathlib.Path) -> tuple[str, int]:
    head, _, tail = stat.read_text().rpartition(")")
    fields = tail.split()
    return head.partition("(")[2], sum(map(int, fields[11:15]))


def reading(process: pathlib.Path) -> Reading:
    return Reading(machine_ticks(), name_and_ticks(process / "stat")[1],
                   {task.name: name_and_ticks(task / "stat")
                    for task in (process / "task").iterdir()})


def loads(previous: Reading, current: Reading) -> dict[str, Any]:
    elapsed = current.machine - previous.machine
    threads = []
    for task, (name, ticks) in current.threads.items():
        if task in previous.threads:
            used = ticks - previous.threads[task][1]
            threads.append({"name": name, "load": 100 * used / elapsed})
    return {"process": 100 * (current.process - previous.process) / elapsed, "threads": threads}


def main() -> None:
    process = pathlib.Path("/proc", sys.argv[1])
    previous = reading(process)
    print(json.dumps({}), flush=True)
    for _ in sys.stdin:
        current = reading(process)
        print(json.dumps(loads(previous, current)), flush=True)
        previous = current


main()
