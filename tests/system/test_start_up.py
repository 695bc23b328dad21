# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The order of the supervisor's start, and how often each part then works."""

from __future__ import annotations

import re

from starting import Start
from logs import content
from settings import memory_reporting, reporting, watch_list
from simulator import wait_until

SNAPSHOTS = "/tmp/log/system"
TRACE = "/tmp/log/trace"


def test_start_up_takes_its_steps_in_their_order(start: Start) -> None:
    running = start("wait", settings={**reporting([]), **memory_reporting(True),
                                      **watch_list({"name": "nobody", "period": 1}, fits=False)},
                    launcher=["strace", "-D", "-qqq", "-o", TRACE,
                              "-e", "trace=clone,clone3,connect,mkdir,openat,sendto"],
                    # strace traces the process, so the search for leaks at the end cannot.
                    environment={"ASAN_OPTIONS": "detect_leaks=0"})
    expected = [
        "application.log",
        "clone",  # the application
        "connect", "sendto",  # the watchdog device and its time-out
        "clone3",  # the thread of the load watcher
        "WatchdogMemoryReportingConf.json",
        "WatchdogAutomaticReporting.json",
        "SystemManagerLogReportConfig.json",
        "WatchdogAutomaticReportingConf.json",
        "mkdir",  # for the archives
        "WatchdogWatchProcessList.json",
        "sendto",  # the first feed
    ]

    def steps() -> list[str]:
        trace = content(running, TRACE).decode()
        found = re.finditer(r"^(?!openat)\w+|[\w.]+\.(?:log|json)(?=\")", trace, re.M)
        return [match[0] for match in found]

    wait_until(lambda: len(steps()) >= len(expected), "the steps are taken")
    assert steps()[:len(expected)] == expected


def test_without_anything_to_watch_the_load_watcher_rests(start: Start) -> None:
    running = start("wait", settings=watch_list())
    script = f"""
        for task in /proc/{running.supervisor().pid}/task/*; do
            [ $(cat $task/comm) != SystemLoad ] || grep ^voluntary_ctxt_switches $task/status
        done"""
    running.wait_for("watchdog device", "KEEPALIVE", count=2)
    before = running.run(["sh", "-c", script]).stdout
    running.wait_for("watchdog device", "KEEPALIVE", count=3)  # 10 s later, or ten samples
    assert b"voluntary" in before
    assert running.run(["sh", "-c", script]).stdout == before


def test_the_device_is_fed_and_a_snapshot_taken_every_ten_seconds(start: Start) -> None:
    running = start("wait")
    snapshots: list[float] = []

    def three_snapshots() -> bool:
        if content(running, SNAPSHOTS):
            written = running.host_path(SNAPSHOTS).stat().st_mtime
            if not snapshots or written - snapshots[-1] > 1:
                snapshots.append(written)
        return len(snapshots) == 3

    wait_until(three_snapshots, "three snapshots", timeout=120)
    running.wait_for("watchdog device", "KEEPALIVE", count=4)
    # The first feed is part of the start.
    feeds = [event.monotonic for event in running.events("watchdog device", "KEEPALIVE")][1:]
    for times in feeds, snapshots:
        assert 9 < min(later - earlier for earlier, later in zip(times, times[1:])) < 19
