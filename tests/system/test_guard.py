# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The application under pynx-watchdog-guard; tests/guard has the tests of the guard itself."""

from __future__ import annotations

import re
import signal
from pathlib import Path

import pytest

from logs import LOG, content
from settings import reporting
from simulator import wait_until
from starting import Start
from test_reports import archive


# AddressSanitizer cannot look for leaks in a program that is traced, and would change how it ends.
_TRACED = {"ASAN_OPTIONS": "detect_leaks=0"}


@pytest.fixture
def guard(build_directory: Path) -> list[str]:
    """The beginning of a command line with the guard."""
    return [str(build_directory / "pynx-watchdog-guard")]


def _stacks(members: dict[str, bytes]) -> bytes:
    name, = (name for name in members if re.fullmatch(r"/tmp/log/guard-.*-\d+\.txt", name))
    return members[name]


def test_a_hang_is_ended_reported_with_its_stacks_and_started_again(
        start: Start, guard: list[str], sample: str) -> None:
    running = start(application=[*guard, "--timeout", "1", "--", sample, "wait"],
                    settings=reporting([LOG]), tools={"reboot": "return"})
    running.wait_for("system log", "Restarting process: exit code:6, exist status:1")
    members = archive(running, "hang")
    stacks = _stacks(members)
    assert stacks.startswith(b"hang: no beat for ")
    assert b" in main " in stacks
    assert b"\nguard: hang: no beat for " in members[LOG]
    assert b"\nguard: ended: signal 6 (SIGABRT) after " in members[LOG]
    wait_until(lambda: content(running).count(b"Starting app: ") >= 2, "the next start")


def test_three_hangs_reboot_the_board(start: Start, guard: list[str], sample: str) -> None:
    running = start(application=[*guard, "--timeout", "1", "--", sample, "wait"])
    running.wait_for("simulator", "board reset: reboot")
    assert running.events("supervisor", "Critical FW error, rebooting.")


def test_a_crash_is_reported_with_its_stacks(start: Start, guard: list[str],
                                             sample: str) -> None:
    running = start(application=[*guard, "--", sample, "signal", "11"], settings=reporting([LOG]),
                    tools={"reboot": "return"})
    assert b" in dieBySignal" in _stacks(archive(running, "crash")).replace(
        b"(anonymous namespace)::", b"")


def test_an_end_that_was_meant_is_none_for_the_supervisor(
        start: Start, guard: list[str], sample: str) -> None:
    running = start(application=[*guard, "--restart-on", "42", "--", sample, "exit", "42"],
                    environment=_TRACED)
    wait_until(lambda: content(running).count(b"guard: ended: status 42 after ") >= 4, "four ends")
    assert content(running).count(b"Starting app: ") == 1
    assert not running.events("system log", "Restarting process")


@pytest.mark.parametrize("options", [["--singleRun"], ["--singleRun", "--rotateOnly"]])
def test_in_single_run_mode_the_status_is_the_applications(
        start: Start, guard: list[str], sample: str, options: list[str]) -> None:
    running = start(application=[*guard, "--", sample, "sleep", "1", "exit", "7"], options=options,
                    environment=_TRACED)
    assert running.wait_supervisor_exit() == 7


@pytest.mark.parametrize("directory, options, read_only_root, reason", [
    ("/tmp/log", ["--user", "daemon"], False, b"Permission denied"),
    ("/home", [], True, b"Read-only file system")])
def test_where_nothing_can_be_written_the_stacks_are_missed(
        start: Start, guard: list[str], sample: str, directory: str, options: list[str],
        read_only_root: bool, reason: bytes) -> None:
    running = start(application=[*guard, "--stacks", directory, "--", sample, "signal", "11"],
                    options=[*options, "--singleRun"], read_only_root=read_only_root)
    assert running.wait_supervisor_exit() == signal.SIGSEGV
    assert re.search(rb"\nguard: no stacks: %b/guard-.*\.txt: %b\n" % (directory.encode(), reason),
                     content(running))
