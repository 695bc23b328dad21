# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Runs pynx-watchdog-check."""

from __future__ import annotations

import json
import subprocess
from dataclasses import dataclass
from pathlib import Path
from typing import Any, NamedTuple, Protocol

import pytest

TIME_LIMIT = 120  # seconds, after which the tool counts as hanging


class Finding(NamedTuple):
    """One finding as the tool tells it."""

    file: str
    line: int | None
    column: int | None
    level: str
    rule: str
    message: str


@dataclass
class Checked:
    """What the tool told, and the status that it ended with."""

    status: int
    findings: list[Finding]
    explanations: list[dict[str, Any]]
    text: str
    stderr: str

    @property
    def places(self) -> list[tuple[int | None, int | None, str]]:
        """Line, column and "LEVEL RULE" of each finding."""
        return [(found.line, found.column, f"{found.level} {found.rule}")
                for found in self.findings]


class Check(Protocol):
    """Runs the tool with these arguments; --json before them gives the findings."""

    def __call__(self, *arguments: Path | str) -> Checked: ...


@pytest.fixture
def check(build_directory: Path) -> Check:
    """check("--strict", path): the tool's status, findings and text."""
    tool = build_directory / "pynx-watchdog-check"

    def run(*arguments: Path | str) -> Checked:
        def start(*more: str) -> subprocess.CompletedProcess[str]:
            return subprocess.run([tool, *more, *arguments], capture_output=True, check=False,
                                  encoding="utf-8", timeout=TIME_LIMIT)

        plain = start()
        machine = start("--json")
        assert plain.returncode == machine.returncode in (0, 1, 2), plain.stderr
        objects = [json.loads(line) for line in machine.stdout.splitlines()] \
            if plain.returncode != 2 else []
        findings = [Finding(**entry) for entry in objects if "rule" in entry]
        return Checked(plain.returncode, findings, [o for o in objects if "rule" not in o],
                       plain.stdout, plain.stderr)

    return run
