# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Running tools, and looking at what they have made."""

from __future__ import annotations

import os
import subprocess
from dataclasses import dataclass
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent.parent


def run(*command: str | Path, environment: dict[str, str] | None = None) -> str:
    """What the command says on standard output; the test fails, with all it said, if it fails."""
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                            check=False, stdin=subprocess.DEVNULL,
                            env={**os.environ, "LC_ALL": "C.UTF-8", **(environment or {})})
    if result.returncode != 0:
        pytest.fail(f"{' '.join(map(str, command))} ended with {result.returncode}:\n"
                    f"{result.stdout[-4000:]}{result.stderr[-4000:]}")
    return result.stdout


def files_below(directory: Path) -> dict[str, str]:
    """Everything but directories, by its path from the directory; for a link, where it leads."""
    return {str(path.relative_to(directory)): os.readlink(path) if path.is_symlink() else ""
            for path in directory.rglob("*") if path.is_symlink() or not path.is_dir()}


@dataclass(frozen=True)
class SdkBuild:
    """The program built with the maker's SDK, or what stands in for it."""

    sdk: Path
    """The SDK's prefix."""
    tree: Path
    """The build tree."""
    root: Path
    """What `cmake --install` lays down, below this directory."""
