# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Gives the tests the guard of the build."""

from __future__ import annotations

from pathlib import Path

import pytest

from guarding import Guard


@pytest.fixture
def guard(build_directory: Path, tmp_path: Path) -> Guard:
    """The guard, with its application and a directory of its own for stacks."""
    return Guard(build_directory / "pynx-watchdog-guard",
                 build_directory / "tests/guard/guarded-application", tmp_path)
