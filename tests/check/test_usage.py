# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The command line of pynx-watchdog-check, and what it ends with."""

from __future__ import annotations

import subprocess
from pathlib import Path

import pytest

WRONG = '{"value": {"type": "bool", "bool": "perhaps"}}'
DOUBTFUL = '{"value": {"type": "bool", "bool": 1}}'
RIGHT = '{"value": {"type": "bool", "bool": true}}'


@pytest.fixture
def tool(build_directory: Path) -> Path:
    return build_directory / "pynx-watchdog-check"


@pytest.mark.parametrize("text, option, status", [
    (RIGHT, "--strict", 0), (DOUBTFUL, "--json", 0), (DOUBTFUL, "--strict", 1),
    (WRONG, "--json", 1),
])
def test_the_status_tells_whether_there_are_errors(
        tool: Path, tmp_path: Path, text: str, option: str, status: int) -> None:
    document = tmp_path / "WatchdogAutomaticReporting.json"
    document.write_text(text, encoding="utf-8")
    assert subprocess.run([tool, option, document], check=False).returncode == status


@pytest.mark.parametrize("arguments, said", [
    (["--unknown"], "Unknown option 'unknown'."),
    (["--program-dir"], "Missing value after '--program-dir'."),
    (["--board=yes"], "Unexpected value after '--board'."),
])
def test_wrong_usage(tool: Path, arguments: list[str], said: str) -> None:
    result = subprocess.run([tool, *arguments], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr == (f"pynx-watchdog-check: {said}\n"
                             "Try pynx-watchdog-check --help.\n")


@pytest.mark.parametrize("option", ["-h", "--help", "--version"])
def test_help_and_version(tool: Path, option: str) -> None:
    result = subprocess.run([tool, option], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stderr) == (0, "")
    assert "pynx-watchdog-check" in result.stdout


def test_the_supervisors_options_are_its_own(tool: Path) -> None:
    result = subprocess.run([tool, "--", "--help"], capture_output=True, text=True, check=False)
    assert "arguments:1: error: \"--help\" is no option and is ignored" in result.stdout


@pytest.mark.parametrize("option", ["--explain", "--help"])
def test_output_that_cannot_be_written_is_an_error(tool: Path, option: str) -> None:
    with open("/dev/full", "wb") as full:
        result = subprocess.run([tool, option], stdout=full, stderr=subprocess.PIPE, text=True,
                                check=False)
    assert result.returncode == 1
    assert result.stderr == "pynx-watchdog-check: standard output cannot be written to\n"
