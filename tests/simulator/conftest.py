# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Gives programs to run in place of the supervisor, so that these tests do not depend on it."""

from __future__ import annotations

import itertools
from pathlib import Path

import pytest

from standin import FEEDER, Script


@pytest.fixture
def script(tmp_path: Path) -> Script:
    """Makes executable shell scripts in a directory of the test."""
    numbers = itertools.count(1)

    def make(text: str, name: str = "") -> Path:
        path = tmp_path / (name or f"program-{next(numbers)}")
        path.write_text("#!/bin/sh\n" + text + "\n", encoding="utf-8")
        path.chmod(0o755)
        return path
    return make


@pytest.fixture
def feeder(tmp_path: Path) -> Script:
    """Makes programs that use the watchdog device through the functions of FEEDER."""

    def make(text: str, name: str = "feeder") -> Path:
        path = tmp_path / name
        path.write_text(FEEDER + text + "\n", encoding="utf-8")
        path.chmod(0o755)
        return path
    return make
