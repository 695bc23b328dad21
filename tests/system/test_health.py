# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The hardware watchdog, the boot flags, the snapshots and the memory report."""

from __future__ import annotations

import re
import signal
import time
from pathlib import Path

import pytest

from starting import Start
from logs import content
from settings import memory_reporting
from simulator import Bind, Device, wait_until
from simulated_devices import DeviceFactory

SNAPSHOTS = "/tmp/log/system"
START_ERROR = "Error occured during process startup, code: "


def operations(running: Device) -> list[str]:
    """What the supervisor did with the watchdog device, in order."""
    return [event.get("name") or event["operation"] for event in running.events("watchdog device")
            if event.get("operation") in ("open", "ioctl", "close", "write")]


def test_the_device_is_armed_and_fed_every_ten_seconds(start: Start) -> None:
    running = start("wait")
    running.wait_for("watchdog device", "KEEPALIVE", count=4)
    assert operations(running)[:6] == ["open", "WDIOC_SETTIMEOUT"] + ["WDIOC_KEEPALIVE"] * 4
    assert running.events("watchdog device", "WDIOC_SETTIMEOUT")[0]["argument"] == 30
    feeds = [event.monotonic for event in running.events("watchdog device", "KEEPALIVE")]
    # The first feed comes at the end of the start. The timer starts before it and fires after 10 s.
    assert all(later - earlier > 9 for earlier, later in zip(feeds[1:], feeds[2:]))


def test_output_without_end_does_not_hold_up_the_feeding(start: Start) -> None:
    running = start("flood-both", "1000000000000", "65536", log_size="16M")
    running.wait_for("watchdog device", "KEEPALIVE", count=4)
    assert not running.events("watchdog device", "expired")


def test_the_countdown_stands_still_while_the_application_is_down(start: Start) -> None:
    # If the countdown went on, it would run out while the main loop waits for killall.
    running = start(application=["sh", "-c", "test -e /tmp/again && exec sleep 600; "
                                             "touch /tmp/again; exec sleep 1"],
                    tools={"killall": "hang"})
    started = running.wait_for("watchdog device", "KEEPALIVE")
    running.wait_for("tool", "killall")
    wait_until(lambda: time.monotonic() > started.monotonic + 11, "the ten seconds are over")
    running.set_tool("killall", "normal")
    running.signal("killall", signal.SIGKILL)
    down = running.wait_for("system log", "Restarting process")
    cleared = running.wait_for("tool", "sfuflags")
    assert cleared.monotonic - down.monotonic >= 10


def test_an_application_that_does_not_start_leaves_the_device_alone(device: DeviceFactory) -> None:
    running = device(arguments=["--logTime"])
    assert running.wait_supervisor_exit() == 1
    assert operations(running) == []


def test_without_the_device_it_says_so_once_and_works_on(start: Start) -> None:
    running = start("print", "alive\\n", "wait", watchdog_device=False)
    running.wait_for("tool", "sfuflags", count=2)  # ten seconds after the start
    assert running.stderr.count(b"Watchdog device doesn't exist!!!\n") == 1
    assert b"alive\n" in content(running)


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGSTOP, signal.SIGABRT])
def test_a_supervisor_that_is_gone_or_stopped_is_followed_by_a_reset(
        start: Start, number: signal.Signals) -> None:
    running = start("wait", bad_boots=2)
    fed = running.wait_for("watchdog device", "KEEPALIVE")
    running.signal("supervisor", number)
    again = running.wait_for("boot loader", starts=True, count=2, timeout=120)
    assert again.monotonic - fed.monotonic >= 30
    running.wait_for("watchdog device", "KEEPALIVE", after=again)
    assert "write" not in operations(running)  # the magic character was not written


def test_a_supervisor_that_ends_does_nothing_to_the_device(start: Start) -> None:
    running = start("sleep", "1", "exit", "3", options=["--singleRun"])
    running.wait_for("simulator", "supervisor ended")
    assert operations(running)[:3] == ["open", "WDIOC_SETTIMEOUT", "WDIOC_KEEPALIVE"]
    assert set(operations(running)[3:]) <= {"close"}  # the kernel closes it when the process ends
    running.wait_for("boot loader", starts=True, count=2, timeout=120)


def test_the_application_does_not_inherit_the_device(start: Start) -> None:
    running = start("descriptors")
    running.wait_for("system log", "Restarting process", count=2)
    assert content(running).count(b"descriptors 0 1 2\n") == content(running).count(b"descriptors")


def test_the_flags_are_cleared_once_the_application_has_stayed_up(start: Start) -> None:
    running = start("wait")
    started = running.wait_for("simulator", "supervisor started")
    fail = running.wait_for("tool", "sfuflags -f fail -v 0")
    count = running.wait_for("tool", "sfuflags -f boot_count -v 0")
    assert fail["arguments"] == ["-f", "fail", "-v", "0"]
    assert count["arguments"] == ["-f", "boot_count", "-v", "0"]
    assert fail.index < count.index and fail.monotonic - started.monotonic >= 10
    assert (running.boot_state.fail, running.boot_state.boot_count) == (0, 0)
    assert not running.host_path("/home/root/ro-test").exists()

    # A restart of the application does not clear the flags again.
    running.signal("application", signal.SIGKILL)
    restart = running.wait_for("system log", "Restarting process")
    running.wait_for("watchdog device", "KEEPALIVE", after=restart, count=2)
    assert len(running.events("tool", "sfuflags")) == 2
    # They were cleared before the feed of the twentieth second.
    assert count.index < running.events("watchdog device", "KEEPALIVE")[2].index


def test_every_restart_begins_the_countdown_anew(start: Start) -> None:
    running = start(application=["/bin/sh", "-c",
                                 "[ -e /tmp/again ] || { touch /tmp/again; sleep 5; exit; }; "
                                 "exec sleep 99"])
    restart = running.wait_for("system log", "Restarting process")
    cleared = running.wait_for("tool", "sfuflags")
    assert cleared.monotonic - restart.monotonic >= 11  # the restart's delay and ten seconds


@pytest.mark.parametrize("behaviour, code",
                         [("fail", 5), ("fail=77", 5), ("absent", 0), ("hang", 2)])
def test_a_flag_tool_that_does_not_work_is_told_and_tried_again_after_a_restart(
        start: Start, behaviour: str, code: int) -> None:
    running = start("wait", tools={"sfuflags": behaviour})
    told = running.wait_for("system log", START_ERROR)
    assert told.text == f"{START_ERROR}{code}"
    assert told["priority"] == "err"
    assert len(running.events("tool", "sfuflags -f")) == (0 if behaviour == "absent" else 1)
    assert running.boot_state.fail == 1

    running.set_tool("sfuflags", "normal")
    running.signal("application", signal.SIGKILL)
    running.wait_for("tool", "sfuflags -f boot_count -v 0")
    assert (running.boot_state.fail, running.boot_state.boot_count) == (0, 0)
    assert len(running.events("system log", START_ERROR)) == 1


def test_an_application_that_dies_too_early_for_several_boots_leads_to_the_fallback(
        start: Start) -> None:
    running = start("exit", "1", bad_boots=2)
    end = running.wait_end(timeout=120)
    assert end["end"] == "fallback"
    assert running.boots == 2
    assert not running.events("tool", "sfuflags")


def test_a_read_only_root_is_told_and_the_board_rebooted(start: Start) -> None:
    running = start("wait", read_only_root=True, bad_boots=2)
    reboot = running.wait_for("tool", "reboot -f")
    assert running.stderr.count(b"Detected filesystem in read-only mode. Rebooting\n") == 1
    dropped = running.wait_for("tool", "fw_setenv update_url_cache")
    assert dropped["arguments"] == ["update_url_cache"]
    assert dropped.index < reboot.index
    assert not running.events("tool", "sfuflags")
    assert "update_url_cache" not in running.boot_state.environment
    running.wait_for("boot loader", starts=True, count=2)


def test_whatever_keeps_the_marker_from_being_made_counts_as_read_only(start: Start) -> None:
    running = start(application=["sh", "-c", "mkdir /home/root/ro-test; exec sleep 600"],
                    bad_boots=2)
    running.wait_for("tool", "reboot -f")
    assert not running.events("tool", "sfuflags")


def test_a_root_that_turns_read_only_is_found_at_the_next_start(start: Start) -> None:
    running = start("wait", tools={"sfuflags": "fail"})
    running.wait_for("system log", START_ERROR)
    running.set_read_only_root(True)
    running.signal("application", signal.SIGKILL)
    running.wait_for("tool", "reboot -f")
    assert b"Detected filesystem in read-only mode. Rebooting\n" in running.stderr


def test_failing_tools_in_the_read_only_case_are_ignored(start: Start) -> None:
    running = start("wait", read_only_root=True, tools={"fw_setenv": "fail", "reboot": "fail"})
    running.wait_for("tool", "reboot -f")
    running.wait_for("watchdog device", "KEEPALIVE", count=3)
    assert running.boots == 1


def test_the_three_newest_snapshots_are_kept(start: Start) -> None:
    running = start("wait")
    # The file has three rounds, so the fourth one removes the first.
    marks: list[bytes] = []

    def rounds() -> int:
        text = content(running, SNAPSHOTS)
        if text and (not marks or marks[-1] != text):
            marks.append(text)
        return len(marks)

    wait_until(lambda: rounds() >= 5, "five versions of the file", timeout=120)
    final = marks[-1]
    pictures = re.split(rb"(?m)^(?=top - )", final)[1:]
    assert len(pictures) == 3
    for picture in pictures:
        assert re.search(rb"(?m)^Mem: ", picture) and b"\n\n" in picture


def test_a_missing_directory_of_the_snapshots_is_told_on_every_round(start: Start) -> None:
    running = start("wait", directories=(), options=["--logfileName", "/tmp/a.log"])
    running.wait_for("supervisor", "Cannot open file", count=2)
    line = b"Cannot open file : /tmp/log/system : err : No such file or directory \n"
    assert running.stderr.count(line) >= 2


@pytest.mark.takes(180)
def test_the_memory_report_comes_every_three_minutes(start: Start) -> None:
    switched_off = start("wait", settings=memory_reporting(False))
    running = start("wait", settings=memory_reporting(True))
    line = re.compile(rb"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} == MEMORY USAGE == "
                      rb"Free: \d+ kB, Buffers\+Cache: \d+ kB\n", re.M)
    wait_until(lambda: line.search(content(running)), "the line", timeout=300)
    feeds = running.events("watchdog device", "KEEPALIVE")
    assert feeds[-1].monotonic - feeds[0].monotonic >= 170  # not before its time
    assert b"MEMORY" not in content(switched_off)  # which has run for longer


def test_a_hanging_top_holds_up_the_feeding_until_the_board_is_reset(start: Start,
                                                                     tmp_path: Path) -> None:
    # The supervisor waits for a command as long as the device's time-out, so the board is reset.
    hanging = tmp_path / "top"
    hanging.write_text("#!/bin/sh\nexec sleep 3600\n")
    hanging.chmod(0o755)
    running = start("wait", binds=[Bind(str(hanging), "/usr/bin/top")], bad_boots=2)
    running.wait_for("watchdog device", "expired", timeout=120)
    running.wait_for("boot loader", starts=True, count=2)
