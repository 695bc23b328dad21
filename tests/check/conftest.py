# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Runs pynx-watchdog-check."""

from __future__ import annotations

import json
import subprocess
from pathlib import Path

import pytest

from checked import TIME_LIMIT, Check, Checked, Finding


@pytest.fixture
def check(build_directory: Path) -> Check:
    """check("--strict", path): the tool's status, findings and text."""
    tool = build_directory / "pynx-watchdog-check"

    def run(*arguments: Path | str, cwd: Path | None = None) -> Checked:
        def start(*more: str) -> subprocess.CompletedProcess[str]:
            return subprocess.run([tool, *more, *arguments], capture_output=True, check=False,
                                  encoding="utf-8", timeout=TIME_LIMIT, cwd=cwd)

        plain = start()
        machine = start("--json")
        assert plain.returncode == machine.returncode in (0, 1, 2), plain.stderr
        objects = [json.loads(line) for line in machine.stdout.splitlines()] \
            if plain.returncode != 2 else []
        findings = [Finding(**entry) for entry in objects if "rule" in entry]
        return Checked(plain.returncode, findings, [o for o in objects if "rule" not in o],
                       plain.stdout, plain.stderr)

    return run
