# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Runs tools, and lists the files that they have made."""

from __future__ import annotations

import os
import subprocess
from dataclasses import dataclass
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent.parent


def run(*command: str | Path, environment: dict[str, str] | None = None) -> str:
    """The standard output of a command. If it fails, the test fails and shows all its output."""
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                            check=False, stdin=subprocess.DEVNULL,
                            env={**os.environ, "LC_ALL": "C.UTF-8", **(environment or {})})
    if result.returncode != 0:
        pytest.fail(f"{' '.join(map(str, command))} ended with {result.returncode}:\n"
                    f"{result.stdout[-4000:]}{result.stderr[-4000:]}")
    return result.stdout


def files_below(directory: Path) -> dict[str, str]:
    """All files and links below a directory by their relative paths, with the target of a link."""
    return {str(path.relative_to(directory)): os.readlink(path) if path.is_symlink() else ""
            for path in directory.rglob("*") if path.is_symlink() or not path.is_dir()}


@dataclass(frozen=True)
class SdkBuild:
    """The project built with a mock of the maker's SDK."""

    sdk: Path
    """The SDK's prefix."""
    tree: Path
    """The build tree."""
    root: Path
    """The directory with the files of `cmake --install`."""
