# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The program is hardened, in the packages and where it is built without Debian's options."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path

import pytest

from tools import ROOT, SdkBuild, run

PROGRAM = "usr/lib/pynx-watchdog/watchdog"


@pytest.fixture(params=["amd64", "arm64", "plain"])
def program(request: pytest.FixtureRequest, unpacked: Callable[[str], Path],
            sdk_build: SdkBuild) -> Path:
    return sdk_build.tree / "watchdog" if request.param == "plain" else \
        unpacked(request.param) / PROGRAM


def test_hardening(program: Path) -> None:
    # The check of the control flow looks for a mark of the whole program, which it has only where
    # the C library has one.
    run("hardening-check", "--nocfprotection", program)


def test_no_directory_of_the_build_is_named(program: Path, sdk_build: SdkBuild,
                                            tmp_path: Path) -> None:
    # What a debugger reads is no part of what a board gets, and leads from the code that Qt's tools
    # write to the sources.
    if program == sdk_build.tree / "watchdog":
        run("strip", "-o", tmp_path / "watchdog", program)
        program = tmp_path / "watchdog"
    content = program.read_bytes()
    for directory in (ROOT, sdk_build.tree):
        assert bytes(directory) not in content


@pytest.mark.parametrize(("architecture", "objdump", "instruction"), [
    ("amd64", "x86_64-linux-gnu-objdump", "endbr64"),
    ("arm64", "aarch64-linux-gnu-objdump", "paciasp")])
def test_jumps_are_checked(unpacked: Callable[[str], Path], architecture: str, objdump: str,
                           instruction: str) -> None:
    code = run(objdump, "--disassemble", unpacked(architecture) / PROGRAM)
    # The C library's start-up code alone has a few.
    assert code.count(f"\t{instruction}") > 100
