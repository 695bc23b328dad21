# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The examples of docs/application.md that send beats."""

from __future__ import annotations

import os
import re
import signal
from pathlib import Path

import pytest

from guarding import Guard, Running

_SOURCES = Path(__file__).resolve().parents[2] / "docs/examples"


@pytest.mark.parametrize("example", ["beat.c", "beat.cpp", "beat.py"])
def test_an_example_beats_until_it_hangs(guard: Guard, build_directory: Path,
                                         example: str) -> None:
    program = build_directory / "tests" / f"example-{example.replace('.', '-')}"
    command = ["/usr/bin/python3", str(_SOURCES / example)] if example.endswith(".py") \
        else [str(program)]
    ended = Running([str(guard.program), "--startup", "60", "--timeout", "6", "--stacks", "", "--",
                     *command]).end()
    assert ended.output == ["turn 1", "turn 2", "turn 3"]
    [told] = ended.told
    assert re.fullmatch(r"guard: hang: no beat for \d+ s", told)
    assert ended.end == ("guard: ended: signal 6 (SIGABRT) after N s, peak N kB, "
                         "last status: the valve is open")


def test_the_stack_of_an_event_loop_that_is_stopped(guard: Guard, build_directory: Path) -> None:
    running = Running([str(guard.program), "--startup", "60", "--timeout", "4",
                       "--stacks", str(guard.directory), "--",
                       str(build_directory / "tests/example-beat-cpp")])
    assert running.line() == "turn 1"
    os.kill(running.child(), signal.SIGSTOP)
    ended = running.end()
    assert ended.status == -signal.SIGABRT
    assert "QCoreApplication::exec()" in ended.threads[0].functions


def test_an_example_without_a_guard_sends_nothing(build_directory: Path) -> None:
    program = Running([str(build_directory / "tests/example-beat-c")])
    assert [program.line() for _ in range(3)] == ["turn 1", "turn 2", "turn 3"]
    program.process.terminate()
    assert program.end().errors == []
