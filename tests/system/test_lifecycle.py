# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The application's start, end and restart, and the reboot at its third end."""

from __future__ import annotations

import re
import signal

import pytest

from starting import Start
from logs import LOG, OLD_LOG, complaints, content
from marks import GUARD_IS_STARTED
from simulator import Device, wait_until
from simulator.cli.display import summarise

CRITICAL = b"Critical FW error, rebooting.\n"
KILLALL = "killall -9 pYNX"
REBOOT = "reboot -f"


def starts(running: Device) -> int:
    """How many starts of the application both generations of the log report."""
    return sum(running.host_path(path).read_bytes().count(b" Watchdog: Starting app: ")
               for path in (LOG, OLD_LOG) if running.host_path(path).exists())


def notices(running: Device) -> list[str]:
    return [event.text for event in running.events("system log", "Restarting process")]


def notice_of(code: int, status: int) -> re.Pattern[str]:
    """The system log's message about an application that ended at once."""
    # The clock may pass to the next second in between.
    return re.compile(
        rf"^Restarting process: exit code:{code}, exist status:{status}, uptime:\d+ sec$")


@GUARD_IS_STARTED
def test_the_start_is_written_into_the_log(start: Start, sample: str) -> None:
    running = start("print", "hello\\n", "wait")
    wait_until(lambda: b"hello" in content(running), "the application's first line")
    line = re.compile(rb"\n\n\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Watchdog: Starting app: "
                      + re.escape(sample.encode()) + rb" \nhello\n")
    assert line.fullmatch(content(running))


def test_an_exit_with_a_code_is_noted_and_the_application_started_again(start: Start) -> None:
    running = start("exit", "5")
    notice = running.wait_for("system log", notice_of(5, 0))
    assert notice["raw"].endswith(" sec\n")
    assert (notice["priority"], notice["facility"], notice["ident"]) == (
        "notice", "user", "pynx_watchdog")
    running.wait_for("system log", notice_of(5, 0), after=notice)
    events = running.events()
    noted = sum(notice_of(5, 0).match(event.text) is not None for event in events)
    assert f"application      restarted {noted} times" in summarise(
        events, running.boot_state, running.directory)


def test_a_killed_application_is_started_again_and_nothing_left_behind(start: Start) -> None:
    running = start("wait", options=["--rotateOnly"])
    supervisor = running.supervisor().pid

    def restart(count: int) -> None:
        for _ in range(count):
            application = running.application()
            running.signal("application", signal.SIGKILL)
            running.application(unlike=application)
        wait_until(lambda: starts(running) == len(notices(running)) + 1, "the start is logged")

    def held() -> bytes:
        """The numbers of the supervisor's descriptors, threads and children."""
        return running.run(["sh", "-c", f"""
            ls /proc/{supervisor}/fd | wc -l; ls /proc/{supervisor}/task | wc -l
            pgrep -P {supervisor} -c"""]).stdout

    restart(1)  # the first notice opens the connection to the system log
    before = held()
    restart(3)
    assert held() == before
    assert len(running.events("system log", notice_of(9, 1))) == 4


def test_a_process_named_pynx_does_not_survive_the_exit(start: Start) -> None:
    script = """cp /bin/sleep /tmp/pYNX; /tmp/pYNX 3600 &
                until grep -qx pYNX /proc/$!/comm; do sleep 0.01; done"""
    running = start(application=["/bin/sh", "-c", script], options=["--singleRun"],
                    watchdog_device=False)
    call = running.wait_for("tool", KILLALL)
    assert call["arguments"] == ["-9", "pYNX"]
    assert call["status"] == 0  # killall has found a process
    assert running.wait_supervisor_exit() == 0


def test_the_third_end_reboots_the_board_which_starts_again(start: Start) -> None:
    running = start("exit", "0", bad_boots=2)
    reboot = running.wait_for("tool", REBOOT)
    assert reboot["arguments"] == ["-f"]
    assert running.stderr.count(CRITICAL) == 1
    assert len(running.events("tool", KILLALL)) == 3
    # Two restarts were logged. The third end reboots the board before its notice.
    assert len(notices(running)) == 2
    running.wait_for("boot loader", starts=True, count=2)
    running.wait_for("tool", REBOOT, count=2)
    assert (running.boot_state.fail, running.boot_state.boot_count) == (1, 2)  # not cleared


@pytest.mark.parametrize("behaviour", ["return", "fail", "absent"])
def test_where_the_reboot_comes_back_the_application_goes_on_and_no_later_end_reboots(
        start: Start, behaviour: str) -> None:
    running = start("exit", "0", tools={"reboot": behaviour})
    running.wait_for("system log", "Restarting process", count=5)
    assert running.stderr.count(CRITICAL) == 1
    assert len(running.events("tool", REBOOT)) == (0 if behaviour == "absent" else 1)
    assert running.boots == 1


@pytest.mark.parametrize("behaviour", ["fail", "absent"])
def test_a_failing_killall_is_ignored(start: Start, behaviour: str) -> None:
    running = start("exit", "0", tools={"killall": behaviour})
    running.wait_for("system log", "Restarting process", count=2)
    # Only the tool may have printed an error, not the supervisor.
    assert complaints(running).replace(b"killall: failed\n", b"") == b""


def test_rotate_only_restarts_without_any_tool_or_device(start: Start) -> None:
    running = start("exit", "1", options=["--rotateOnly"])
    running.wait_for("system log", "Restarting process", count=5)
    assert not running.events("tool")
    assert not running.events("watchdog device", "open")
    assert CRITICAL not in running.stderr


@pytest.mark.parametrize("program", ["/nowhere/application", "/etc/passwd", "/usr"],
                         ids=["missing", "not executable", "a directory"])
def test_what_cannot_be_executed_ends_like_an_application_that_fails_at_once(start: Start,
                                                                             program: str) -> None:
    running = start(application=[program], bad_boots=1)
    running.wait_for("tool", REBOOT)
    assert len(notices(running)) == len(running.events("system log", notice_of(255, 0))) == 2
    assert not running.events("system log", "Error occured during process startup")


def test_what_cannot_be_executed_gives_255_in_single_run_mode(start: Start) -> None:
    running = start(application=["/nowhere/application"], options=["--singleRun", "--rotateOnly"])
    assert running.wait_supervisor_exit() == 255


def test_the_application_never_sees_the_end_of_its_input(start: Start) -> None:
    running = start("print", "reading\\n", "cat", "print", "ended\\n")
    wait_until(lambda: b"reading" in content(running), "the application reads")
    # An end would be seen until then.
    running.wait_for("watchdog device", "KEEPALIVE", count=2)
    assert b"ended" not in content(running)
    assert not notices(running)
