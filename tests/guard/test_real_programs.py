# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Programs that were written for systemd, and a debugger that sees the same stacks."""

from __future__ import annotations

import os
import re
import signal
import socket
import subprocess
import time
from pathlib import Path

import pytest

from guarded_stacks import assert_same_functions, debug
from guarding import TIME_LIMIT, Guard, Running
from marks import AS_ROOT
from simulator import wait_until

_PYTHON = """
import os, signal, time
from systemd import daemon
assert daemon.notify("READY=1")
for _ in range(3):
    daemon.notify("STATUS=beating\\nWATCHDOG=1")
    time.sleep(2)
os.kill(os.getpid(), signal.SIGSTOP)
"""

_SHELL = """
systemd-notify --ready --status=beating
for i in 1 2 3; do
    systemd-notify WATCHDOG=1
    sleep 2
done
kill -STOP $$
"""

_HANG = re.compile(r"guard: hang: no beat for \d+ s")


@pytest.mark.takes(10)
@pytest.mark.parametrize("program", [("/usr/bin/python3", "-c", _PYTHON), ("sh", "-c", _SHELL)],
                         ids=["python3-systemd", "systemd-notify"])
def test_its_beats_are_heard_and_their_end_is_noticed(guard: Guard,
                                                      program: tuple[str, ...]) -> None:
    ended = Running([str(guard.program), "--stacks", str(guard.directory), "--timeout", "5",
                     "--startup", "60", "--", *program]).end()
    told, = ended.told
    assert _HANG.fullmatch(told)
    assert ended.status == -signal.SIGABRT
    assert ended.end.endswith(", last status: beating")
    after = re.search(r"after (\d+) s", ended.errors[-1])
    assert after and int(after[1]) >= 9  # the last beat came after 4 s


@pytest.mark.takes(13)
def test_a_daemon_of_debian(guard: Guard) -> None:
    with socket.create_server(("127.0.0.1", 0)) as server:
        port = server.getsockname()[1]
    running = Running([str(guard.program), "--stacks", str(guard.directory), "--timeout", "5",
                       "--startup", "60", "--", "/lib/systemd/systemd-journal-remote",
                       f"--listen-raw=127.0.0.1:{port}", "--split-mode=none",
                       f"--output={guard.directory}/received.journal"])
    assert running.error_line() == f"Listening on 127.0.0.1:{port}"
    time.sleep(7)  # longer than the time-out
    assert running.process.poll() is None
    os.kill(running.child(), signal.SIGSTOP)
    ended = running.end()
    told, = ended.told
    assert _HANG.fullmatch(told)
    assert ended.end.endswith(", last status: Processing requests...")
    assert "sd_event_run" in ended.threads[0].functions


def test_a_debugger_that_comes_later_is_told_who_traces(guard: Guard) -> None:
    running = guard.start("ids", "wait")
    running.line()
    done = subprocess.run(["gdb", "-nx", "-batch", "-p", str(running.child())], check=False,
                          capture_output=True, encoding="utf-8", timeout=TIME_LIMIT)
    assert f"is already traced by process {running.process.pid}" in done.stderr
    running.send(signal.SIGTERM)
    assert running.end().status == -signal.SIGTERM


@AS_ROOT
def test_a_fork_bomb_that_is_limited(guard: Guard) -> None:
    user = 54321  # without other processes
    as_user = ["setpriv", f"--reuid={user}", "--clear-groups"]
    running = Running([*as_user, "prlimit", "--nproc=100", *guard.command(
        "notify", "READY=1", "fork-bomb", options=("--timeout", "1"))])
    try:
        running.process.wait(TIME_LIMIT)
    finally:  # the application's children live on; this kills all processes of the user at once
        subprocess.run([*as_user, "kill", "-KILL", "--", "-1"], check=True)
    ended = running.end()
    assert _HANG.fullmatch(ended.told[0])
    assert ended.status == -signal.SIGABRT


@pytest.mark.parametrize("behaviours", [("crash",), ("abort",), ("crash-in-thread",),
                                        ("inline-crash",), ("raise", "10"),
                                        ("report-and-die", "11", "crash")],
                         ids=" ".join)
def test_the_frames_are_those_of_a_debugger(guard: Guard, behaviours: tuple[str, ...]) -> None:
    assert_same_functions(guard.run(*behaviours).threads[0].functions,
                          debug("gdb", "run", "--args", guard.application, *behaviours))


def _sleep_both(process: int) -> bool:
    """Whether it has two threads, and both sleep."""
    stats = [file.read_text("ascii") for file in Path(f"/proc/{process}/task").glob("*/stat")]
    return [stat.split(") ")[-1][0] for stat in stats] == ["S", "S"]


@AS_ROOT
def test_the_frames_of_a_deadlock_are_those_of_a_debugger(guard: Guard) -> None:
    threads = guard.run("deadlock", options=("--timeout", "2")).threads
    assert len(threads) == 2
    with subprocess.Popen([guard.application, "deadlock"]) as alone:
        try:
            wait_until(lambda: _sleep_both(alone.pid), "the deadlock")
            for number, thread in enumerate(threads, start=1):
                assert_same_functions(thread.functions,
                                      debug("gdb", f"attach {alone.pid}\nthread {number}"))
        finally:
            alone.kill()
