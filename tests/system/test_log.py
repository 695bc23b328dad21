# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The application's log as the supervisor writes it: no output is lost without need.

tst_logprocessor.cpp tests the bytes of the file.
"""

from __future__ import annotations

import re
import signal
import time
from datetime import datetime, timezone

from starting import Start
from logs import OLD_LOG, content
from marks import GUARD_TELLS_THE_END
from simulator import wait_until
from simulated_devices import DeviceFactory


@GUARD_TELLS_THE_END
def test_ten_megabytes_on_each_channel_at_once_and_nothing_is_lost(start: Start) -> None:
    running = start("flood-both", "10000000", "4096", log_size="100M",
                    options=["--singleRun", "--rotateOnly"])
    assert running.wait_supervisor_exit() == 0
    # Chunks of both channels end at any byte and interleave. What came through standard error has
    # its highest bit set.
    written = content(running).split(b" \n", 1)[1]
    expected = b"".join(f"out {number} ".ljust(99, ".").encode() + b"\n"
                        for number in range(100_000))
    assert written.translate(None, bytes(range(128, 256))) == expected
    assert written.translate(bytes(range(128)) * 2, bytes(range(128))) == expected


def test_one_old_generation_is_kept_and_both_hold_the_unbroken_end(start: Start) -> None:
    running = start("flood", "5000000", "1000", log_size="256k",
                    options=["--singleRun", "--rotateOnly"])
    assert running.wait_supervisor_exit() == 0
    kept = content(running, OLD_LOG) + content(running)
    numbers = [int(n) for n in re.findall(rb"^out (\d+) \.+$", kept, re.M)]
    assert numbers == list(range(numbers[0], 50_000))
    assert len(content(running, OLD_LOG)) >= 256 * 1024
    assert sorted(p.name for p in running.host_path("/tmp/log").iterdir()) == [
        "application.log", "application.log.0"]


def test_time_lines(start: Start) -> None:
    running = start("print", "one\\n", "sleep", "2.1", "error", "two\\n", "wait",
                    options=["--rotateOnly", "--logTime"])
    wait_until(lambda: b"two" in content(running), "the last line")
    lines = content(running).splitlines()
    assert lines[-1] == b"two" and lines.count(b"one") == 1
    for line in (lines[0], lines[-2]):
        written = datetime.strptime(line.decode(), "-- Time: %a %b %d %H:%M:%S %Y GMT")
        age = time.time() - written.replace(tzinfo=timezone.utc).timestamp()
        assert 0 <= age < 600


def test_without_a_log_file_everything_is_echoed(device: DeviceFactory, sample: str) -> None:
    running = device(arguments=["--rotateOnly", "--singleRun", "--logTime", "--app", sample,
                                "print", "to the console\\n", "error", "this too\\n"])
    assert running.wait_supervisor_exit() == 0
    assert b" Watchdog: Starting app: " in running.stdout
    assert b"to the console\n" in running.stdout and b"this too\n" in running.stdout
    assert b"-- Time:" not in running.stdout
    assert running.stderr == b""


def test_the_log_survives_restarts_in_one_file(start: Start) -> None:
    # The output of a grandchild after the application's end is lost.
    running = start("grandchild", "1", "print", "again\\n", options=["--rotateOnly"])
    running.wait_for("system log", "Restarting process", count=3)
    assert content(running).count(b"again\n") == 3
    assert b"grandchild was here" not in content(running)


def test_a_supervisor_that_is_killed_has_its_log_up_to_the_last_flush(start: Start) -> None:
    running = start("print", "kept\\n", "wait", options=["--rotateOnly"])
    wait_until(lambda: b"kept\n" in content(running), "the flush")
    running.signal("supervisor", signal.SIGKILL)
    assert running.wait_supervisor_exit() == -signal.SIGKILL
    assert content(running).endswith(b"kept\n")
