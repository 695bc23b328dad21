# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What a run of pynx-watchdog-check gives."""

from __future__ import annotations

import json
from collections.abc import Sequence
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

    def __call__(self, *arguments: Path | str, cwd: Path | None = None) -> Checked: ...


# A finding as (argument's number or None, level, rule).
Short = tuple[int | None, str, str]


def document(payload: Any) -> dict[str, Any]:
    """A settings document with this content."""
    return {"value": {"type": "payload", "payload": payload}}


def write_settings(program_dir: Path, settings: dict[str, Any],
                   directory: str = "settings") -> None:
    """Write documents by their names; one that is text is written as it is."""
    (program_dir / directory).mkdir(parents=True, exist_ok=True)
    for name, content in settings.items():
        text = content if isinstance(content, str) else json.dumps(content)
        (program_dir / directory / name).write_text(text, encoding="utf-8")


class Tool:
    """The tool for one program directory, in which it runs, too."""

    def __init__(self, check: Check, program_dir: Path) -> None:
        self._check = check
        self.program_dir = program_dir

    def run(self, *arguments: str) -> Checked:
        """What it tells; an end by a signal or a message on standard error fails the test."""
        done = self._check("--program-dir", self.program_dir, *arguments, cwd=self.program_dir)
        assert done.status in (0, 1) and done.stderr == "", done
        return done

    def findings(self, supervisor: Sequence[str]) -> list[Finding]:
        """What it finds in the supervisor's arguments."""
        return [found for found in self.run("--", *supervisor).findings
                if found.file == "arguments"]

    def judged(self, supervisor: Sequence[str]) -> list[Short]:
        """The same, without the messages."""
        return [(found.line, found.level, found.rule) for found in self.findings(supervisor)]

    def explained(self, supervisor: Sequence[str] | None = None) -> dict[str, dict[str, Any]]:
        """The explanations by their settings."""
        after = () if supervisor is None else ("--", *supervisor)
        return {each["setting"]: each for each in self.run("--explain", *after).explanations}
