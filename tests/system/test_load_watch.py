# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Load alarms and absences of processes in the application's log."""

from __future__ import annotations

import re
from typing import Any

from starting import Start
from logs import content
from marks import AS_ROOT
from settings import watch_list
from simulator import Device, wait_until

TIME = rb"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}"
NUMBER = rb"[0-9.e+-]+"


def watched(name: str, **fields: Any) -> dict[str, Any]:
    """An entry of the watch list, which by default gives an alarm at any load.

    Nobody wants that on a board, so such an entry does not fit the schema.
    """
    return {"name": name, "period": 1, "maxLoad": 0, "maxReports": 100, **fields}


def headers(running: Device, load: int) -> int:
    """The number of alarms with this threshold in the log."""
    return len(re.findall(rb"^%s Process:\S* \(\d+\) cpu load is : %d for \d+ seconds $"
                          % (TIME, load), content(running), re.M))


def test_an_alarm_is_a_block_of_lines_with_the_busiest_threads(start: Start) -> None:
    running = start("name", "burner", "burn", "7", "5", "wait",
                    settings=watch_list(watched("burner", period=2, threadInfo=True), fits=False))
    group = (rb"%(time)s Time between two invocations:\d+ms\n"
             rb"%(time)s burner cpu load:%(number)s%%\n"
             rb"%(time)s burner total thread load:%(number)s%%\n"
             rb"(?:%(time)s  thread name:burner(?:-\d)? load:%(number)s%%\n){5}"
             ) % {b"time": TIME, b"number": NUMBER}
    block = re.compile(TIME + rb" Process:burner \(\d+\) cpu load is : 0 for 2 seconds \n"
                       + group + group)
    wait_until(lambda: block.search(content(running)), "a whole alarm is in the log")


def test_without_thread_info_an_alarm_has_no_thread_lines(start: Start) -> None:
    running = start("name", "burner", "burn", "1", "20", "wait",
                    settings=watch_list(watched("burner"), fits=False))
    wait_until(lambda: headers(running, 0) >= 2, "alarms")
    assert b"thread" not in content(running)


def test_after_the_allowed_number_of_alarms_the_watching_ends(start: Start) -> None:
    running = start("name", "burner", "burn", "1", "60", "wait",
                    settings=watch_list(watched("burner", maxLoad=0),
                                        watched("burner", maxLoad=1, maxReports=2),
                                        watched("burner", maxLoad=2, maxReports=0), fits=False))
    # The first entry serves as a clock: by its sixth alarm the others could have had more of
    # theirs.
    wait_until(lambda: headers(running, 0) >= 6, "six alarms of the unlimited entry")
    assert headers(running, 1) == 2
    assert headers(running, 2) == 0


def test_what_is_watched_no_more_is_not_missed_either(start: Start, sample: str) -> None:
    running = start(application=["sh", "-c", f"{sample} name burner burn 1 60 sleep 5 & "
                                             f"{sample} name other sleep 8 & wait; exec sleep 600"],
                    settings=watch_list(watched("burner"), watched("burner", maxReports=0),
                                        watched("other", maxLoad=101), fits=False))
    # The process that ended last serves as a clock: the others' absences are reported before its
    # own.
    wait_until(lambda: b"Process other with args [] doesn't appear for 30 seconds\n"
               in content(running), "the other one is missed", timeout=120)
    assert content(running).count(b"Process burner with args [] doesn't appear") == 1


def test_arguments_tell_processes_of_one_name_apart(start: Start) -> None:
    running = start("name", "burner", "burn", "1", "20", "wait",
                    settings=watch_list(watched("burner", arguments=["wait", "burn"], maxLoad=0),
                                        watched("burner", arguments=["-x"], maxLoad=1),
                                        fits=False))
    wait_until(lambda: headers(running, 0) >= 2, "alarms of the matching entry")
    assert headers(running, 1) == 0


def test_a_watched_process_that_ends_is_an_alarm_with_an_enormous_load(start: Start) -> None:
    running = start("name", "shortlived", "burn", "1", "50", "sleep", "4", "exit", "0",
                    settings=watch_list(watched("shortlived", maxLoad=1000), fits=False))
    found = wait_until(lambda: re.search(TIME + rb"  cpu load:(%s)%%\n" % NUMBER, content(running)),
                       "the vanished process's line, without a name")
    assert float(found[1]) > 1e6
    assert re.search(TIME + rb" Process: \(0\) cpu load is : 1000 for 1 seconds \n",
                     content(running))


def test_a_process_that_does_not_appear_is_told_once_after_thirty_seconds(start: Start) -> None:
    running = start("wait", settings=watch_list(
        watched("absent", arguments=["-d", "-v"]), watched("missing"), fits=False))
    started = running.wait_for("watchdog device", "opened")
    with_arguments = b"Process absent with args [-d,-v] doesn't appear for 30 seconds\n"
    without = b"Process missing with args [] doesn't appear for 30 seconds\n"
    wait_until(lambda: with_arguments in content(running) and without in content(running),
               "both are told", timeout=120)
    feeds = running.events("watchdog device", "KEEPALIVE")
    # More than two whole feeds have passed, and not as many as in twice the time.
    assert 19.9 <= feeds[-1].monotonic - started.monotonic < 45
    # Two more feeds mean twenty more seconds without another line.
    running.wait_for("watchdog device", "KEEPALIVE", after=feeds[-1], count=2)
    assert content(running).count(b"doesn't appear") == 2


def scheduling(running: Device, pid: int) -> dict[str, str]:
    """The policy and priority of each thread of a process, by the thread's name."""
    script = f"""
        for task in /proc/{pid}/task/*; do
            echo "$(cat $task/comm) $(awk '{{print $(NF-11), $(NF-12)}}' $task/stat)"
        done"""
    lines = running.run(["sh", "-c", script]).stdout.decode().splitlines()
    return dict(line.split(" ", 1) for line in lines)


@AS_ROOT
def test_only_the_watching_thread_is_scheduled_in_real_time(start: Start) -> None:
    running = start("name", "app", "print", "ready\\n", "wait")
    running.wait_for("watchdog device", "KEEPALIVE")
    supervisor = scheduling(running, running.supervisor().pid)
    assert supervisor == {"watchdog": "0 0", "SystemLoad": "2 99"}  # SCHED_RR at the maximum
    assert set(scheduling(running, running.application().pid).values()) == {"0 0"}
    assert b"Cannot set priority" not in running.stderr


@AS_ROOT
def test_without_the_privilege_it_says_so_once_and_works_on(start: Start, sample: str) -> None:
    running = start("wait", options=["--rotateOnly"],
                    settings=watch_list(watched("plain"), fits=False))
    done = running.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                        "prlimit", "--rtprio=0:0", "/supervisor/watchdog", "--singleRun", "--app",
                        sample, "name", "plain", "burn", "1", "30", "sleep", "5", "exit", "0"])
    assert done.status == 0
    assert done.stderr.count(b"Cannot set priority\n") == 1
    assert b"plain cpu load:" in done.stdout
