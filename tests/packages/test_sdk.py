# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""-DPYNX_SDK_ROOT=PREFIX: the supervisor with the maker's libraries instead of the stand-in."""

from __future__ import annotations

import re
import subprocess
from pathlib import Path

from tools import ROOT, SdkBuild, run


def test_the_libraries_of_the_prefix_are_linked(sdk_build: SdkBuild) -> None:
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]",
                        run("readelf", "--dynamic", "--wide", sdk_build.tree / "watchdog"))
    for name in ("libpynx_api.so", "libpynx_processhandler.so", "libpynx_thrift_api.so"):
        assert name in needed
        assert (sdk_build.sdk / "lib" / name).exists()


def test_the_stand_in_is_left_out(sdk_build: SdkBuild) -> None:
    defined = run("nm", "--demangle", "--defined-only", sdk_build.tree / "watchdog")
    undefined = run("nm", "--demangle", "--undefined-only", sdk_build.tree / "watchdog")
    for function in ("pynxLocalTimeDateString()", "PynxProcessHandler::startAsync("):
        assert function not in defined
        assert function in undefined


def test_the_program_calls_the_sdk(sdk_build: SdkBuild, tmp_path: Path) -> None:
    log = tmp_path / "log"
    run(sdk_build.tree / "watchdog", "--rotateOnly", "--singleRun", "--logfileName", log,
        "--logfileSize", "64k", "--app", "/bin/echo", "hello")
    assert "the time by the SDK Watchdog: Starting app: /bin/echo" in log.read_text("utf-8")


def test_a_prefix_that_lacks_a_library_is_named(tmp_path: Path) -> None:
    result = subprocess.run(["cmake", "-S", ROOT, "-B", tmp_path / "build",
                             f"-DPYNX_SDK_ROOT={tmp_path}", "-DBUILD_TESTING=OFF"],
                            capture_output=True, text=True, check=False)
    assert result.returncode != 0
    assert f"PYNX_SDK_ROOT: there is no library pynx_api in\n  {tmp_path}/lib" in result.stderr
