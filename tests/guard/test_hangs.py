# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What counts as a hang, and what is done about it."""

from __future__ import annotations

import ctypes
import os
import re
import resource
import signal
import socket
import subprocess
import time
from pathlib import Path

import pytest

from guarding import TIME_LIMIT, Ended, Guard, Running

HANGS_AT_ONCE = ("read", "notify", "WATCHDOG=trigger", "wait")
PTRACE_CONT, PTRACE_SEIZE, PTRACE_O_TRACEEXIT = 7, 0x4206, 0x40


def _assert_hang(ended: Ended, how: int = signal.SIGABRT) -> None:
    assert len(ended.told) == 1
    assert re.fullmatch(r"guard: hang: no beat for \d+ s", ended.told[0])
    assert ended.status == -how
    assert [name for _, name in ended.reports] == ["hang"]


def test_no_message_at_all_is_a_hang(guard: Guard) -> None:
    ended = guard.run("wait", options=("--timeout", "1"))
    _assert_hang(ended)
    assert int(ended.told[0].split()[-2]) >= 1
    (file, _), = ended.reports
    assert re.fullmatch(r"guard-guarded-application-\d+\.txt", file.name)
    assert file.parent == guard.directory
    assert file.stat().st_mode & 0o777 == 0o644


@pytest.mark.takes(8)
def test_beats_keep_it_from_being_one(guard: Guard) -> None:
    ended = guard.run("beat", "1500", "3", "wait", options=("--timeout", "4"))
    _assert_hang(ended)
    found = re.search(r"after (\d+) s", ended.errors[-1])
    assert found and int(found[1]) >= 7  # the last beat came after 3 s


def test_without_a_time_out_nothing_is_a_hang(guard: Guard) -> None:
    ended = guard.run("environment", "WATCHDOG_USEC", "environment", "WATCHDOG_PID",
                      "sleep", "1500", options=("--startup", "1"),
                      env={"WATCHDOG_PID": "1", "WATCHDOG_USEC": "2"})
    assert ended.output == ["WATCHDOG_USEC=(unset)", "WATCHDOG_PID=(unset)"]
    assert ended.status == 0 and not ended.told


def test_the_variables_of_the_protocol(guard: Guard) -> None:
    ended = guard.run("ids", "environment", "WATCHDOG_USEC", "environment", "WATCHDOG_PID",
                      options=("--timeout", "30"), env={"WATCHDOG_PID": "1", "WATCHDOG_USEC": "2"})
    process = ended.output[0].split()[1]
    assert ended.output[1:] == ["WATCHDOG_USEC=30000000", f"WATCHDOG_PID={process}"]


def test_the_start_may_take_longer(guard: Guard) -> None:
    ended = guard.run("sleep", "2000", "notify", "READY=1", "exit", "3",
                      options=("--timeout", "1", "--startup", "60"))
    assert ended.status == 3 and not ended.told
    ended = guard.run("notify", "STATUS=x", "wait", options=("--timeout", "1", "--startup", "60"))
    _assert_hang(ended)


def test_with_a_startup_of_0_the_first_message_begins_it(guard: Guard) -> None:
    ended = guard.run("sleep", "1500", "notify", "READY=1", "wait",
                      options=("--timeout", "1", "--startup", "0"))
    _assert_hang(ended)
    found = re.search(r"after (\d+) s", ended.errors[-1])
    assert found and int(found[1]) >= 2


def test_the_application_may_ask_for_more_time(guard: Guard) -> None:
    ended = guard.run("notify", "EXTEND_TIMEOUT_USEC=60000000", "sleep", "1500", "exit", "3",
                      options=("--timeout", "1"))
    assert ended.status == 3 and not ended.told


def test_what_was_asked_for_is_over_when_it_is_ready(guard: Guard) -> None:
    _assert_hang(guard.run("notify", "EXTEND_TIMEOUT_USEC=60000000", "notify", "READY=1", "wait",
                           options=("--timeout", "1")))


def test_an_application_that_says_it_stops_has_time_for_it(guard: Guard) -> None:
    ended = guard.run("notify", "READY=1", "notify", "STOPPING=1", "sleep", "1500", "exit", "3",
                      options=("--timeout", "1"))
    assert ended.status == 3 and not ended.told


def test_a_time_in_which_all_was_stopped_does_not_count(guard: Guard) -> None:
    running = guard.start("notify", "READY=1", "say", "ready", "beat", "100", "30",
                          options=("--timeout", "2"), start_new_session=True)
    assert running.line() == "ready"
    os.killpg(running.process.pid, signal.SIGSTOP)
    time.sleep(2.5)
    os.killpg(running.process.pid, signal.SIGCONT)
    ended = running.end()
    assert ended.status == 0 and not ended.told


def test_it_sleeps_until_something_comes(guard: Guard, build_directory: Path) -> None:
    running = guard.start("say", "ready", "read", options=("--timeout", "600"))
    assert running.line() == "ready"
    file = Path(f"/proc/{running.process.pid}/status")
    before, after = file.read_text("utf-8"), ""
    for _ in range(2):  # the first time it may still be starting
        before = after or before
        time.sleep(1)
        after = file.read_text("utf-8")
    assert running.end().status == 0
    name = "voluntary_ctxt_switches:"
    assert after.split(name)[1].split()[0] == before.split(name)[1].split()[0]
    if b"__asan_init" not in (build_directory / "pynx-watchdog-guard").read_bytes():
        assert int(after.split("VmRSS:")[1].split()[0]) < 4096  # kB


def test_the_application_may_change_the_time_out(guard: Guard) -> None:
    _assert_hang(guard.run("notify", "WATCHDOG_USEC=200000", "wait", options=("--timeout", "600")))
    _assert_hang(guard.run("notify", "WATCHDOG_USEC=200000", "wait"))
    ended = guard.run("notify", "WATCHDOG_USEC=0", "sleep", "1500", "exit", "3",
                      options=("--timeout", "1"))
    assert ended.status == 3 and not ended.told


@pytest.mark.parametrize("options", [(), ("--timeout", "600")])
def test_the_application_may_say_itself_that_it_hangs(
        guard: Guard, options: tuple[str, ...]) -> None:
    _assert_hang(guard.run("notify", "WATCHDOG=trigger", "wait", options=options))


@pytest.mark.parametrize("text", [
    "", "=", "WATCHDOG", "WATCHDOG=", "WATCHDOG=2", "watchdog=1", "WATCHDOG_USEC=x",
    "WATCHDOG_USEC=", "WATCHDOG_USEC=-1", "EXTEND_TIMEOUT_USEC=1h", "\\n\\n=\\nSTATUS"])
def test_what_is_no_beat_is_none(guard: Guard, text: str) -> None:
    _assert_hang(guard.run("notify", "READY=1", "sleep", "500", "notify", text, "wait",
                           options=("--timeout", "1")))


def test_a_time_beyond_all_bounds_is_long(guard: Guard) -> None:
    ended = guard.run("notify", "EXTEND_TIMEOUT_USEC=99999999999999999999999", "notify",
                      "WATCHDOG_USEC=18446744073709551615", "sleep", "1500",
                      options=("--timeout", "1"))
    assert ended.status == 0 and not ended.told


@pytest.mark.parametrize("behaviour", ["notify-from-child", "notify-from-orphan"])
def test_beats_of_its_other_processes_count(guard: Guard, behaviour: str) -> None:
    ended = guard.run(*("sleep", "2000", behaviour, "WATCHDOG=1") * 3, options=("--timeout", "5"))
    assert ended.status == 0 and not ended.told


def test_beats_of_strangers_do_not_count(guard: Guard) -> None:
    running = guard.start("environment", "NOTIFY_SOCKET", "notify", "READY=1", "wait",
                          options=("--timeout", "2"))
    address = running.line().split("=")[1]
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as stranger:
        stranger.connect("\0" + address[1:])
        stranger.send(b"WATCHDOG=1\nWATCHDOG_USEC=0\nSTATUS=from a stranger")
    ended = running.end()
    _assert_hang(ended)
    assert "stranger" not in ended.errors[-1]


def test_descriptors_that_come_along_are_closed(guard: Guard) -> None:
    running = guard.start("barrier", "send-descriptors", "200", "read")
    assert (running.line(), running.line()) == ("passed", "passed")
    # Standard channels, signals and the socket.
    assert len(os.listdir(f"/proc/{running.process.pid}/fd")) == 5
    assert running.end().status == 0


@pytest.mark.takes(10)
def test_a_flood_of_garbage_changes_nothing(guard: Guard) -> None:
    """100 MB from a stranger and 7 MB from a child of the application, which beats meanwhile."""
    garbage = ["/usr/bin/python3", str(Path(__file__).with_name("garbage.py"))]
    running = Running([str(guard.program), "--timeout", "30", "--",
                       "sh", "-c",
                       'echo $NOTIFY_SOCKET; read go; "$0" "$1" 1 2000 & shift; exec "$@"',
                       *garbage, str(guard.application), "notify", "STATUS=beating",
                       "beat", "10", str(TIME_LIMIT * 100)])
    descriptors = Path(f"/proc/{running.process.pid}/fd")
    address = running.line()
    before = len(list(descriptors.iterdir()))
    assert running.process.stdin
    running.process.stdin.write(b"\n")
    subprocess.run([*garbage, "2", "30000"], env={"NOTIFY_SOCKET": address}, check=True,
                   timeout=TIME_LIMIT)
    assert running.line() == "sent"  # the application's child
    after = len(list(descriptors.iterdir()))
    running.send(signal.SIGTERM)
    ended = running.end()
    assert after == before
    assert not ended.told
    assert ended.end.endswith("signal 15 (SIGTERM) after N s, peak N kB, last status: beating")


@pytest.mark.parametrize("behaviours, function", [
    (("spin",), "spinForEver"),
    (("deadlock",), "(anonymous namespace)::Locker::lockBoth(std::mutex&, std::mutex&)"),
    (("threads", "5", "raise", str(signal.SIGSTOP.value)), "main"),
    (("churn", "wait"), "main"),
    (("raise-for-ever", "wait"), "main"),
])
def test_kinds_of_hangs(guard: Guard, behaviours: tuple[str, ...], function: str) -> None:
    ended = guard.run("notify", "READY=1", *behaviours, options=("--timeout", "1"))
    _assert_hang(ended)
    assert function in ended.threads[0].functions


def test_a_hang_after_the_main_thread_has_ended(guard: Guard) -> None:
    ended = guard.run("threads", "2", "notify", "WATCHDOG_USEC=200000", "end-main-thread")
    _assert_hang(ended)
    assert [thread.name for thread in ended.threads] == ["waiter-0", "waiter-1"]
    for thread in ended.threads:
        assert any("waitForEver" in each for each in thread.functions)


def test_both_threads_of_a_deadlock_are_shown(guard: Guard) -> None:
    ended = guard.run("deadlock", options=("--timeout", "1"))
    _assert_hang(ended)
    assert len(ended.threads) == 2
    for thread in ended.threads:
        assert any("lockBoth" in each for each in thread.functions)


def test_a_full_pipe_does_not_hold_up_the_guard(guard: Guard, tmp_path: Path) -> None:
    reading, writing = os.pipe()
    process = subprocess.Popen(guard.command("fill-output", options=("--timeout", "1")),
                               stdout=writing)
    os.close(writing)
    assert process.wait(TIME_LIMIT) == -signal.SIGABRT
    os.close(reading)
    text, = tmp_path.glob("guard-*.txt")
    assert "fillStandardOutput" in text.read_text("utf-8")


@pytest.mark.takes(8)
def test_an_application_that_survives_the_abort_is_killed(guard: Guard) -> None:
    ended = guard.run("ignore", "6", "notify", "STATUS=deaf", "wait",
                      options=("--timeout", "1", "--grace", "6"))
    _assert_hang(ended, signal.SIGKILL)
    assert ended.end == \
        "guard: ended: signal 9 (SIGKILL) after N s, peak N kB, last status: deaf"
    found = re.search(r"after (\d+) s", ended.errors[-1])
    assert found and int(found[1]) >= 7


def test_the_limit_of_its_files_ends_the_stacks_and_not_the_application(guard: Guard) -> None:
    ended = guard.run("handle", "6", "handle", str(signal.SIGXFSZ.value), "threads", "50",
                      "notify", "WATCHDOG_USEC=200000", "await-signal", "sleep", "500", "exit", "3",
                      preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (2000, 2000)))
    assert ended.told[1].endswith(": File too large")
    assert [line for line in ended.output if line.startswith("handled")] == ["handled 6"]
    assert ended.status == 3


def test_an_application_may_handle_the_abort(guard: Guard) -> None:
    ended = guard.run("handle", "6", "await-signal", "say", "saved", "exit", "3",
                      options=("--timeout", "1"))
    assert ended.status == 3
    assert "saved" in ended.output


@pytest.mark.takes(35)
def test_an_application_that_cannot_be_killed_does_not_keep_the_guard(guard: Guard) -> None:
    """A tracer that stops it at its end is as good as a driver that never returns."""
    libc = ctypes.CDLL(None, use_errno=True)
    running = guard.start("ids", *HANGS_AT_ONCE, options=("--stacks", "", "--grace", "0"))
    process = int(running.line().split()[1])
    assert libc.ptrace(PTRACE_SEIZE, process, None, PTRACE_O_TRACEEXIT) == 0, \
        os.strerror(ctypes.get_errno())
    assert running.process.stdin
    running.process.stdin.write(b"\n")
    try:
        assert running.process.wait(TIME_LIMIT) == -signal.SIGKILL
    finally:
        libc.ptrace(PTRACE_CONT, process, None, None)
    assert running.end().errors[1] == "guard: the application does not end, not even by SIGKILL"
