# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The shells of boards, for tests of scripts: dash with this machine's tools, and busybox."""

from __future__ import annotations

import os
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

import pytest

BUSYBOX = shutil.which("busybox") or ""
NAMES = ["dash", pytest.param("busybox", marks=pytest.mark.skipif(
    not BUSYBOX, reason="busybox is not installed"))]


@dataclass(frozen=True)
class Shell:
    """A shell, and the PATH of the tools that belong to it."""

    program: str
    path: str


def make_shell(name: str, directory: Path) -> Shell:
    """The shell of this name. The links to busybox are made in the directory."""
    if name == "dash":
        return Shell(shutil.which("dash") or "/bin/sh", os.environ["PATH"])
    applets = directory / "applets"
    applets.mkdir()
    subprocess.run([BUSYBOX, "--install", "-s", applets], check=True)
    return Shell(str(applets / "sh"), str(applets))


def write_tool(file: Path, body: str, shell: str = "/bin/sh") -> None:
    """Write a script that can be executed."""
    file.write_text(f"#!{shell}\n{body}\n", "utf-8")
    file.chmod(0o755)
