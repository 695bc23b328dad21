# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The load watcher on a board whose processors have no time left."""

from __future__ import annotations

import re

import pytest

from emulated_board import LOG, NewBoard
from simulator import wait_until

_EVERY_TICK = "sample-applicat"
"""The application's name as the kernel shortens it. Its alarms show each tick."""
_TICKS = 15


@pytest.mark.takes(60)
def test_the_watcher_runs_in_real_time_on_a_saturated_board(new_emulated_board: NewBoard) -> None:
    entry = {"arguments": [], "logFile": "", "threadInfo": False}
    board = new_emulated_board(settings={"WatchdogWatchProcessList": [
        entry | {"name": "xz", "period": 3, "maxLoad": 20, "threadInfo": True, "maxReports": 2},
        entry | {"name": _EVERY_TICK, "period": 1, "maxLoad": 0, "maxReports": 100000}]})
    listed = wait_until(lambda: text if "SystemLoad" in (text := board.check(
        f"for task in /proc/{board.supervisor()}/task/*; do "
        "echo $(cat $task/comm) $(cut -d' ' -f40,41 $task/stat); done")) else "", "the thread")
    threads = dict(line.split(" ", 1) for line in listed.splitlines())
    assert threads.pop("SystemLoad") == "99 2"  # the highest real-time priority, policy round robin
    assert set(threads.values()) == {"0 0"}

    def log() -> str:
        return board.read(LOG).decode(errors="replace")

    def intervals() -> list[int]:
        return [int(interval) for interval in re.findall(
            rf"Process:{_EVERY_TICK} .*\n.*Time between two invocations:(\d+)ms", log())]

    def idle() -> int:
        return int(board.check("head -n1 /proc/stat").split()[4])

    # xz has one thread that distributes the work to four others.
    board.check("nohup xz -0 -T4 -c /dev/zero >/dev/null 2>&1 &")
    wait_until(lambda: re.search(r"Process:xz \(\d+\) cpu load is : 20 for 3 seconds \n", log())
               and re.search(r"(.*  thread name:xz load:.*%\n){5}", log()), "an alarm for xz", 120)
    seen, before = len(intervals()), idle()
    wait_until(lambda: len(intervals()) >= seen + _TICKS, "ticks", 120)
    assert idle() - before < 100  # in hundredths of a second, over two processors
    assert max(intervals()[seen:]) < 5000
    assert board.hardware() == []
