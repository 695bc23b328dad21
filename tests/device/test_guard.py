# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""An application that hangs on a real board, and what an engineer is told of it later."""

from __future__ import annotations

import subprocess
import tarfile
from pathlib import Path

import pytest

from emulated_board import SAMPLE, EmulatedBoard, NewBoard, supervise
from guarded_stacks import assert_same_functions, debug, threads_of
from images import PROJECT
from qmp import RESET
from scripts.arm64_packages import run

_LOG = "/tmp/log/application.log"
_STORAGE = "/var/lib/archives"
_REPORTING = {"WatchdogAutomaticReporting": True,
              "WatchdogAutomaticReportingConf": {"uploadPath": _STORAGE,
                                                 "uploadFilePrefix": "report"}}
# The second hang is later than the first 30 s after the boot, in which no archive is made.
_TIMEOUT = 25


def _assert_frames_are_a_debuggers(board: EmulatedBoard, application: Path,
                                   behaviour: str) -> None:
    """Crash the application under the guard, and show its core to a debugger."""
    program, directory = f"/host/{application.name}", f"/host/{behaviour}"
    board.check(f"""
        echo /tmp/core >/proc/sys/kernel/core_pattern
        ulimit -c unlimited
        mkdir {directory}
        pynx-watchdog-guard --stacks {directory} -- {program} {behaviour}
        mv /tmp/core {directory}/core
        cp -L $(LD_TRACE_LOADED_OBJECTS=1 {program} | grep -o '/[^ ]*') {directory}""")
    records = board.host / behaviour
    text, = records.glob("guard-*.txt")
    ours = threads_of(text.read_text(encoding="utf-8"))[0]
    assert_same_functions(ours.functions, debug(
        "gdb-multiarch", f"set sysroot {records}\nset solib-search-path {records}\n"
        f"core-file {records}/core", application))


@pytest.mark.takes(120)
def test_three_hangs_reboot_the_board_and_the_evidence_says_so(
        new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(
        supervise("/usr/bin/pynx-watchdog-guard", "--timeout", str(_TIMEOUT), "--", SAMPLE, "name",
                  "product", "print", "up\\n", "wait", log=_LOG),
        systemd=True, settings=_REPORTING)
    # After the third end, the board is to stay up.
    board.set_arguments(supervise(log=_LOG))
    board.wait_for_hardware(RESET, timeout=600)
    board.wait_until_up()
    assert board.cause()["cause"] == "third end"

    hang = board.check(f"ls {_STORAGE} | grep '^report-hang-.*gz$'").split()[0]
    board.check(f"mkdir /host/evidence && cp {_STORAGE}/report-* /host/evidence/ && "
                "journalctl --output=export >/host/evidence/journal")
    evidence = board.host / "evidence"
    with tarfile.open(evidence / hang) as archive:
        stacks, = (member for member in archive.getnames() if "/guard-sample-" in member)
        file = archive.extractfile(stacks)
        assert file
        text = file.read().decode()
    assert text.startswith("hang: no beat for ")
    thread, = threads_of(text)
    assert thread.name == "product" and "pause" in thread.functions
    told = subprocess.run([PROJECT / "tools/evidence/pynx-watchdog-evidence", evidence], check=True,
                          capture_output=True, text=True).stdout
    verdict = told.split("\n\n", 1)[0].splitlines()
    assert [line for line in verdict if " hung" in line and "no beat for" in line], told
    assert [line for line in verdict if "rebooted at the third end" in line], told


@pytest.mark.takes(90)
def test_the_frames_of_a_crash_are_those_of_a_debugger(new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(supervise(log=_LOG), systemd=True)
    application = board.host / "guarded-application"
    run(["aarch64-linux-gnu-g++", "-std=c++17", "-g", "-O1", "-pthread", "-o", application,
         PROJECT / "tests/guard/guardedapplication.cpp"])
    for behaviour in ("crash", "abort", "crash-in-thread"):
        _assert_frames_are_a_debuggers(board, application, behaviour)
