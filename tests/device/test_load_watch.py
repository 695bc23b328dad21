# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Load alarms for a real program with threads, and the watcher's pace on a saturated board."""

from __future__ import annotations

import re
import statistics
from typing import Any

import pytest

from board import LOG, Board, Measured, NewBoard
from simulator import wait_until

_ROUND_ROBIN = 2
_HIGHEST_PRIORITY = 99
_TICKS = 25
_WATCHED_AT_EVERY_TICK = "sample-applicat"  # as the kernel shortens it


@pytest.mark.takes(90)
class TestLoadWatch:
    """xz with four threads keeps both processors busy."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        def entry(name: str, arguments: list[str], **others: Any) -> dict[str, Any]:
            return {"name": name, "arguments": arguments, "logFile": "", **others}

        return new_board(settings={"WatchdogWatchProcessList": [
            entry("xz", ["-T4"], period=3, maxLoad=20, threadInfo=True, maxReports=2),
            entry(_WATCHED_AT_EVERY_TICK, [], period=1, maxLoad=0, threadInfo=False,
                  maxReports=100000)]})

    def test_the_watchers_thread_alone_is_scheduled_in_real_time(self, board: Board) -> None:
        listed = wait_until(lambda: text if "SystemLoad" in (text := board.check(
            f"for task in /proc/{board.supervisor()}/task/*; do "
            "echo $(cat $task/comm) $(cut -d' ' -f40,41 $task/stat); done")) else "", "the thread")
        threads = {name: (int(priority), int(policy)) for name, priority, policy
                   in (line.split() for line in listed.splitlines())}
        assert threads.pop("SystemLoad") == (_HIGHEST_PRIORITY, _ROUND_ROBIN)
        assert set(threads.values()) == {(0, 0)}

    def test_an_alarm_lists_the_threads(self, board: Board) -> None:
        board.check("nohup sh -c 'exec xz -0 -T4 -c /dev/zero >/dev/null' >/dev/null 2>&1 &")
        alarm = wait_until(lambda: re.search(
            r"Process:xz \((\d+)\) cpu load is : 20 for 3 seconds \n(.*?)Process:",
            _log(board), re.DOTALL), "an alarm for xz", 120)
        assert int(alarm[1]) == int(board.check("pgrep --exact xz"))
        ticks = re.findall(r"xz total thread load:(.*)%\n((?:.*  thread name:xz load:.*%\n)*)",
                           alarm[2])
        assert len(ticks) == 3
        shown = [[float(load) for load in re.findall(r"load:(.*)%", lines)] for _, lines in ticks]
        # One thread deals the work out to four. Where the emulator itself has to wait for a
        # processor, the parts can come to more than the whole.
        assert max(map(len, shown)) == 5
        for (total, _), loads in zip(ticks, shown):
            assert float(total) == pytest.approx(sum(loads), rel=1e-3) and float(total) >= 20
            assert loads == sorted(loads, reverse=True)

    def test_the_watcher_keeps_its_second_on_a_saturated_board(self, board: Board,
                                                               measured: Measured) -> None:
        thread = board.check(f"grep -l SystemLoad /proc/{board.supervisor()}/task/*/comm") \
            .split("/")[4]
        trace = "/sys/kernel/tracing/instances/ticks"
        board.check(f"mkdir {trace} && echo mono >{trace}/trace_clock && "
                    f"echo 'pid == {thread}' >{trace}/events/sched/sched_waking/filter && "
                    f"echo 'next_pid == {thread}' >{trace}/events/sched/sched_switch/filter && "
                    f"echo 1 >{trace}/events/sched/sched_waking/enable && "
                    f"echo 1 >{trace}/events/sched/sched_switch/enable")
        seen = len(_told_intervals(board))
        before = _idle_ticks(board)
        wait_until(lambda: len(_told_intervals(board)) >= seen + _TICKS, "ticks", 120)
        assert _idle_ticks(board) - before < 100  # hundredths of a second, of two processors
        told = _told_intervals(board)[seen:]
        wakings, latencies = _wakings(board.check(f"cat {trace}/trace"))
        intervals = [later - earlier for earlier, later in zip(wakings, wakings[1:])]
        measured(f"SystemLoad on a saturated board, {len(told)} ticks as the program tells them",
                 f"{min(told)} ms to {max(told)} ms, median {statistics.median(told):.0f} ms")
        measured(f"SystemLoad on a saturated board, {len(intervals)} wake-ups in the kernel's "
                 "trace",
                 f"{min(intervals) * 1e3:.1f} ms to {max(intervals) * 1e3:.1f} ms; "
                 f"from waking to running {max(latencies) * 1e3:.2f} ms at most")
        assert all(interval < 5000 for interval in told)
        assert 900 < statistics.median(told) < 1500

    def test_no_more_alarms_than_configured(self, board: Board) -> None:
        assert _log(board).count("Process:xz (") <= 2
        assert board.hardware() == []


def _log(board: Board) -> str:
    return board.run(f"cat {LOG}").output.decode(errors="replace")


def _told_intervals(board: Board) -> list[int]:
    """Milliseconds between ticks; the entry that is watched at every tick tells each of them."""
    return [int(milliseconds) for milliseconds in re.findall(
        r"Process:" + _WATCHED_AT_EVERY_TICK + r" .*\n.*Time between two invocations:(\d+)ms",
        _log(board))]


def _idle_ticks(board: Board) -> int:
    return int(board.check("head -n1 /proc/stat").split()[4])


def _wakings(trace: str) -> tuple[list[float], list[float]]:
    """When the thread was woken for each tick, and how long it then waited for a processor."""
    wakings: list[float] = []
    latencies: list[float] = []
    woken = None
    for time, event in re.findall(r" (\d+\.\d+): (sched_waking|sched_switch):", trace):
        seconds = float(time)
        if event == "sched_waking":
            woken = seconds
        elif woken is not None:
            latencies.append(seconds - woken)
            if not wakings or woken - wakings[-1] > 0.3:  # else it has only waited for something
                wakings.append(woken)
            woken = None
    return wakings, latencies
