# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What a run of pynx-watchdog-check gives."""

from __future__ import annotations

from dataclasses import dataclass
from pathlib import Path
from typing import Any, NamedTuple, Protocol

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
