# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The programs are hardened, in the packages and where they are built without Debian's options."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path

import pytest

from tools import ROOT, SdkBuild, run

PROGRAMS = {"supervisor": "usr/lib/pynx-watchdog/watchdog",
            "check": "usr/lib/pynx-watchdog/pynx-watchdog-check",
            "guard": "usr/bin/pynx-watchdog-guard"}


@pytest.fixture(params=PROGRAMS)
def installed(request: pytest.FixtureRequest, unpacked: Callable[[str], Path],
              guards: dict[str, Path], sdk_build: SdkBuild) -> Callable[[str], Path]:
    """installed("arm64"): a program as the packages have it, or the "plain" build."""
    def find(build: str) -> Path:
        if build == "plain":
            return sdk_build.root / PROGRAMS[request.param]
        root = unpacked(build)
        run("dpkg-deb", "--extract", guards[build], root)
        return root / PROGRAMS[request.param]
    return find


@pytest.fixture(params=["amd64", "arm64", "plain"])
def program(request: pytest.FixtureRequest, installed: Callable[[str], Path]) -> Path:
    return installed(request.param)


def test_hardening(program: Path) -> None:
    # The check of the control flow looks for a mark of the whole program, which it has only where
    # the C library has one.
    run("hardening-check", "--nocfprotection", program)


def test_no_directory_of_the_build_is_named(program: Path, sdk_build: SdkBuild,
                                            tmp_path: Path) -> None:
    # What a debugger reads is no part of what a board gets, and leads from the code that Qt's tools
    # write to the sources.
    if program.is_relative_to(sdk_build.root):
        run("strip", "-o", tmp_path / "stripped", program)
        program = tmp_path / "stripped"
    content = program.read_bytes()
    for directory in (ROOT, sdk_build.tree):
        assert bytes(directory) not in content


@pytest.mark.parametrize(("architecture", "objdump", "instruction"), [
    ("amd64", "x86_64-linux-gnu-objdump", "endbr64"),
    ("arm64", "aarch64-linux-gnu-objdump", "paciasp")])
def test_jumps_are_checked(installed: Callable[[str], Path], architecture: str, objdump: str,
                           instruction: str) -> None:
    code = run(objdump, "--disassemble", installed(architecture))
    # The C library's start-up code alone has a few.
    assert code.count(f"\t{instruction}") > 50
