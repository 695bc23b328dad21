# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Runs pynx-watchdog-check with the supervisor's arguments and settings of a test."""

from __future__ import annotations

import json
import subprocess
from collections.abc import Sequence
from pathlib import Path
from typing import Any

Object = dict[str, Any]

# A finding as (argument's number or None, level, rule).
Short = tuple[int | None, str, str]


def document(payload: Any) -> Object:
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
    """The tool of the build, for one program directory."""

    def __init__(self, build: Path, program_dir: Path) -> None:
        self._tool = build / "pynx-watchdog-check"
        self.program_dir = program_dir

    def run(self, *arguments: str, timeout: float = 60) -> subprocess.CompletedProcess[bytes]:
        """Run it in the program directory; a signal is no end for it."""
        done = subprocess.run(
            [str(self._tool), "--program-dir", str(self.program_dir), *arguments],
            cwd=self.program_dir, capture_output=True, timeout=timeout, check=False)
        assert done.returncode in (0, 1), done
        assert done.stderr == b""
        return done

    def objects(self, *arguments: str) -> list[Object]:
        """What it prints with --json."""
        return [json.loads(line) for line in self.run("--json", *arguments).stdout.splitlines()]

    def findings(self, supervisor: Sequence[str]) -> list[Object]:
        """What it finds in the supervisor's arguments."""
        return [found for found in self.objects("--", *supervisor)
                if found["file"] == "arguments"]

    def judged(self, supervisor: Sequence[str]) -> list[Short]:
        """The same, without the messages."""
        return [(found["line"], found["level"], found["rule"])
                for found in self.findings(supervisor)]

    def explained(self, supervisor: Sequence[str] | None = None) -> dict[str, Object]:
        """The explanations by their settings."""
        after = () if supervisor is None else ("--", *supervisor)
        return {each["setting"]: each for each in self.objects("--explain", *after)
                if "setting" in each}
