# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The examples that docs/application.md gives to whoever writes the application."""

from __future__ import annotations

from pathlib import Path

import pytest

from starting import Start
from logs import content
from settings import reporting
from simulator import wait_until

_SOURCES = Path(__file__).resolve().parents[2] / "docs" / "examples"
TRACE = "/tmp/log/trace"


@pytest.mark.parametrize("example", ["report.c", "report.cpp", "report.py"])
def test_the_marker_of_an_example_is_one_write_and_makes_an_archive(
        start: Start, build_directory: Path, example: str) -> None:
    program = build_directory / "tests" / f"example-{example.replace('.', '-')}"
    command = f"/usr/bin/python3 {_SOURCES / example}" if example.endswith(".py") else program
    script = f"strace -o {TRACE} -e trace=write {command}; exec sleep 600"
    running = start(application=["/bin/sh", "-c", script], settings=reporting([TRACE]))
    wait_until(lambda: list(running.host_path("/tmp/upload").glob("report-valve-*.tar.gz")),
               "an archive")
    writes = [line for line in content(running, TRACE).decode().splitlines() if "write(1" in line]
    assert [line.split('"')[1] for line in writes] == [
        r"the valve does not close\n", r"==Report==valve\n"]
