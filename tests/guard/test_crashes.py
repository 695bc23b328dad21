# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What counts as a crash, and the stacks that are kept of it."""

from __future__ import annotations

import os
import re
import resource
import shutil
import signal
import subprocess
from pathlib import Path
from tempfile import TemporaryDirectory

import pytest

from guarding import TIME_LIMIT, Ended, Guard
from marks import AS_ROOT


def _assert_crash(ended: Ended, number: signal.Signals) -> None:
    assert ended.status == -number
    assert not ended.told
    assert [name for _, name in ended.reports] == ["crash"]
    assert f"crash: signal {number.value} ({number.name})" in ended.stacks


@pytest.mark.parametrize("behaviour, number, function", [
    ("crash", signal.SIGSEGV, "innermostFunction"),
    ("crash-in-thread", signal.SIGSEGV, "innermostFunction"),
    ("overflow", signal.SIGSEGV, "overflowTheStack"),
    ("abort", signal.SIGABRT, "abort"),
])
def test_a_crash_leaves_its_stack(guard: Guard, behaviour: str, number: signal.Signals,
                                  function: str) -> None:
    ended = guard.run("threads", "3", behaviour)
    _assert_crash(ended, number)
    assert function in ended.threads[0].functions[:5]
    assert ("\n(more frames are left out)\n" in ended.stacks) == (behaviour == "overflow")
    assert sum(thread.name.startswith("waiter-") for thread in ended.threads) == 3


@pytest.mark.parametrize("number", [signal.SIGBUS, signal.SIGFPE, signal.SIGILL, signal.SIGSYS,
                                    signal.SIGTRAP, signal.SIGUSR1, signal.SIGALRM, signal.SIGPIPE,
                                    signal.SIGQUIT])
def test_other_signals_that_end_it_are_crashes_too(guard: Guard, number: signal.Signals) -> None:
    _assert_crash(guard.run("signal", str(number.value)), number)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGKILL])
def test_a_signal_that_asks_for_the_end_is_none(guard: Guard, number: signal.Signals) -> None:
    ended = guard.run("signal", str(number.value))
    assert ended.status == -number
    assert not ended.reports


@pytest.mark.parametrize("number", [signal.SIGCHLD, signal.SIGCONT, signal.SIGURG, signal.SIGWINCH])
def test_a_signal_that_does_nothing_is_none(guard: Guard, number: signal.Signals) -> None:
    ended = guard.run("raise", str(number.value), "exit", "3")
    assert ended.status == 3 and not ended.reports


def test_a_signal_that_is_handled_is_none(guard: Guard) -> None:
    ended = guard.run("handle", "10", "raise", "10", "exit", "3")
    assert ended.output == ["handled 10"]
    assert ended.status == 3


def test_an_ignored_signal_is_none(guard: Guard) -> None:
    ended = guard.run("ignore", "10", "raise", "10", "exit", "3")
    assert ended.status == 3 and not ended.reports


def test_a_crash_that_the_application_reports_itself_is_one(guard: Guard) -> None:
    ended = guard.run("report-and-die", "11", "crash")
    assert ended.output[0] == "handled 11"
    _assert_crash(ended, signal.SIGSEGV)
    assert "innermostFunction" in ended.threads[0].functions  # above the handler


def test_the_crash_of_another_process_is_none(guard: Guard) -> None:
    ended = guard.run("clone-process", "exit", "3")
    assert ended.output == ["the child runs", "its signal was 11"]
    assert ended.status == 3


def test_a_crash_after_a_thread_has_executed_a_program(guard: Guard) -> None:
    ended = guard.run("threads", "2", "execute-in-thread", str(guard.application), "crash")
    _assert_crash(ended, signal.SIGSEGV)
    assert len(ended.threads) == 1


def test_a_crash_whose_stacks_take_longer_than_the_time_out_is_no_hang(guard: Guard) -> None:
    # The guard waits for a second until what nobody reads has been read.
    running = guard.start("say", "unread", "threads", "1000", "notify", "WATCHDOG_USEC=500000",
                          "crash-in-thread")
    running.process.wait(TIME_LIMIT)
    _assert_crash(running.end(), signal.SIGSEGV)


def test_a_thousand_threads(guard: Guard) -> None:
    ended = guard.run("threads", "1000", "crash")
    _assert_crash(ended, signal.SIGSEGV)
    assert "innermostFunction" in ended.threads[0].functions
    left_out = re.search(r"\n\((\d+) more threads are left out\)\n", ended.stacks)
    assert len(ended.threads) + (int(left_out[1]) if left_out else 0) == 1001


def test_a_program_without_symbols(guard: Guard, tmp_path: Path) -> None:
    """Its build id and the addresses in its file lead to the functions."""
    guard.application = Path(shutil.copy(guard.application, tmp_path / "stripped"))
    subprocess.run(["strip", guard.application], check=True)
    ended = guard.run("crash")
    _assert_crash(ended, signal.SIGSEGV)
    assert ended.threads[0].functions[0] == "??"
    frame = next(line for line in ended.stacks.splitlines() if line.startswith("#0 "))
    address = frame.rsplit("+", 1)[1]
    original = Path(str(guard.program)).parent / "tests/guard/guarded-application"
    found = subprocess.run(["addr2line", "-f", "-e", original, address], check=True,
                           capture_output=True, encoding="utf-8")
    assert found.stdout.splitlines()[0] == "innermostFunction"
    notes = subprocess.run(["readelf", "-n", original], check=True, capture_output=True,
                           encoding="utf-8").stdout
    build_id = notes.split("Build ID: ")[1].split()[0]
    assert f"{build_id} {guard.application}" in ended.stacks


def test_without_a_directory_nothing_is_traced(guard: Guard) -> None:
    running = guard.start("ids", "read", "crash", options=("--stacks", ""))
    process = running.line().split()[1]
    assert "TracerPid:\t0\n" in Path(f"/proc/{process}/status").read_text("utf-8")
    ended = running.end()
    assert ended.status == -signal.SIGSEGV
    assert not ended.told and not ended.reports


def test_a_directory_that_is_not_there_is_told(guard: Guard) -> None:
    guard.directory = Path("/nowhere")
    ended = guard.run("crash")
    assert ended.status == -signal.SIGSEGV
    assert len(ended.told) == 1
    assert ended.told[0].startswith("guard: no stacks: /nowhere/guard-guarded-application-")
    assert ended.told[0].endswith(".txt: No such file or directory")
    assert not ended.reports


def test_stacks_for_which_there_is_no_room_are_told(guard: Guard) -> None:
    ended = guard.run("threads", "50", "crash",
                      preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (2000, 2000)))
    assert ended.status == -signal.SIGSEGV
    (file, _), = ended.reports
    assert ended.told == [f"guard: the stacks are not whole: {file}: File too large"]
    assert file.stat().st_size == 2000


def test_a_link_in_the_directory_is_not_followed(guard: Guard, tmp_path: Path) -> None:
    running = guard.start("ids", "read", "crash")
    process = running.line().split()[1]
    precious = tmp_path / "precious"
    precious.write_text("kept", "utf-8")
    (tmp_path / f"guard-guarded-application-{process}.txt").symlink_to(precious)
    assert "innermostFunction" in running.end().stacks
    assert precious.read_text("utf-8") == "kept"


def test_an_application_that_another_traces_runs_without_stacks(guard: Guard) -> None:
    done = subprocess.run(["strace", "-f", "-o", "/dev/null", *guard.command("crash")], check=False,
                          capture_output=True, encoding="utf-8", timeout=120)
    assert "guard: no stacks: the application cannot be traced: Operation not permitted\n" \
        in done.stderr
    assert "guard: ended: signal 11 (SIGSEGV)" in done.stderr


@AS_ROOT
def test_a_program_that_gains_rights_keeps_them(guard: Guard) -> None:
    with TemporaryDirectory() as directory:
        os.chmod(directory, 0o755)
        program = shutil.copy("/usr/bin/id", directory)
        os.chmod(program, 0o4755)
        done = subprocess.run([shutil.copy(guard.program, directory), "--", program, "-u"],
                              user=65534, group=65534, extra_groups=(), check=False,
                              capture_output=True, encoding="utf-8")
    assert done.stdout == "0\n"
    assert done.stderr.startswith(f"guard: no stacks: {program} gains rights when it is started")
