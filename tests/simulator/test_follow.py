# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The new lines of a log that grows and is rotated."""

from collections.abc import Iterator
from pathlib import Path

import pytest

from simulator.cli.follow import LINES_AT_A_TIME, LogFollower


@pytest.fixture
def log(tmp_path: Path) -> Path:
    return tmp_path / "log"


@pytest.fixture
def follower(log: Path) -> Iterator[LogFollower]:
    follower = LogFollower(lambda: log.open("rb"))
    yield follower
    follower.close()


def append(log: Path, text: str) -> None:
    with log.open("a", encoding="utf-8") as file:
        file.write(text)


def test_nothing_while_there_is_no_log(follower: LogFollower) -> None:
    assert follower.poll() == ([], 0)


def test_each_line_comes_once_and_when_it_is_whole(log: Path, follower: LogFollower) -> None:
    append(log, "one\ntw")
    assert follower.poll() == (["one"], 0)
    append(log, "o\n")
    assert follower.poll() == (["two"], 0)
    assert follower.poll() == ([], 0)


def test_nothing_is_lost_over_a_rotation(log: Path, follower: LogFollower) -> None:
    append(log, "one\n")
    follower.poll()
    append(log, "two\nthree without end")
    log.rename(log.with_suffix(".0"))
    append(log, "four\n")
    assert follower.poll() == (["two", "three without end", "four"], 0)
    append(log, "five\n")
    assert follower.poll() == (["five"], 0)


def test_an_emptied_log_is_read_from_its_beginning(log: Path, follower: LogFollower) -> None:
    append(log, "a long first line\n")
    follower.poll()
    log.write_text("two\n", encoding="utf-8")
    assert follower.poll() == (["two"], 0)


def test_a_flood_is_cut(log: Path, follower: LogFollower) -> None:
    append(log, "".join(f"{number}\n" for number in range(1000)))
    shown, left_out = follower.poll()
    assert shown == [str(number) for number in range(LINES_AT_A_TIME)]
    assert left_out == 1000 - LINES_AT_A_TIME
