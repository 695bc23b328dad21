# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""packaging/boot/boot-cause with prepared trees of files, under dash and busybox."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
from pathlib import Path
from typing import Any

import pytest

from shells import NAMES, Shell, make_shell, write_tool

PROGRAM = Path(__file__).resolve().parents[2] / "packaging/boot/boot-cause"
BY_DEVICE = "reset by the watchdog device"
FIRST, SECOND, THIRD = (f"{digit * 8}-0000-4000-8000-{digit * 12}" for digit in "1a3")
TIME = "2026-11-21T23:59:58+0100"
GARBLED = [b"", b"\n", b"\0" * 4096, bytes(range(256)) * 40, b"'\"$(reboot) `reboot` \\ * %s\n",
           b"x" * 3_000_000]


class Board:
    """A board's files below a directory, and the shell that runs boot-cause on it."""

    def __init__(self, root: Path, shell: Shell) -> None:
        self.root = root
        self.tools = root / "tools"
        self._shell = shell
        self.tools.mkdir(parents=True)
        self.tool("logger", f'echo "$*" >>{root}/system-log')
        self.tool("fw_printenv", "exit 1")
        self.bootstatus("0")

    def tool(self, name: str, body: str) -> None:
        """Put a stand-in first in PATH."""
        write_tool(self.tools / name, body)

    def write(self, name: str, content: str | bytes) -> Path:
        file = self.root / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content if isinstance(content, bytes) else content.encode())
        return file

    def bootstatus(self, value: str) -> None:
        self.write("sys/class/watchdog/watchdog0/bootstatus", f"{value}\n")

    def record(self, content: str | bytes, name: str = "dmesg-ramoops-0") -> Path:
        return self.write(f"sys/fs/pstore/{name}", content)

    def state(self, name: str) -> Path:
        return self.root / "var/lib/pynx-watchdog" / name

    def call(self, *arguments: str, **environment: str) -> int:
        result = subprocess.run(
            [self._shell.program, PROGRAM, *arguments], timeout=120, check=False,
            env={"PATH": f"{self.tools}:{self._shell.path}", "BOOT_CAUSE_ROOT": str(self.root),
                 **environment})
        return result.returncode

    def boots(self, boot_id: str, **environment: str) -> dict[str, Any]:
        """Start a boot: what boot-cause has concluded."""
        self.write("proc/sys/kernel/random/boot_id", f"{boot_id}\n")
        self.report.unlink(missing_ok=True)
        assert self.call("start", **environment) == 0
        return self.told()

    @property
    def report(self) -> Path:
        return self.root / "tmp/log/boot"

    def told(self) -> dict[str, Any]:
        lines = self.report.read_text("ascii").splitlines()
        concluded = json.loads(lines[-1])
        assert isinstance(concluded, dict)
        # The lines for people say the same.
        assert lines[:-1] == [f"Cause of this boot: {concluded['cause']}",
                              *(f"- {reason}" for reason in concluded["concluded_from"])]
        return concluded

    def end(self, reason: str, boot_id: str = FIRST, time: str = TIME) -> None:
        """What the board tool reboot notes in the state directory."""
        self.write("var/lib/pynx-watchdog/end", f"{boot_id} {reason} {time}\n")


@pytest.fixture(params=NAMES)
def board(request: pytest.FixtureRequest, tmp_path: Path) -> Board:
    """A board that has not booted yet."""
    return Board(tmp_path / "board", make_shell(request.param, tmp_path))


@pytest.fixture
def booted(board: Board) -> Board:
    """A board whose boot FIRST has run."""
    board.boots(FIRST)
    return board


def test_the_first_boot_has_no_known_cause(board: Board) -> None:
    concluded = board.boots(FIRST)
    assert concluded["cause"] == "unknown"
    assert concluded["boot_id"] == FIRST
    assert concluded["last_boot_id"] is None
    assert board.state("running").read_text("ascii") == f"{FIRST} {concluded['time']}\n"


def test_no_trace_is_a_loss_of_power(booted: Board) -> None:
    began = booted.told()["time"]
    concluded = booted.boots(SECOND)
    assert concluded["cause"] == "power loss"
    assert (concluded["last_boot_id"], concluded["last_boot_time"]) == (FIRST, began)
    assert concluded["bootstatus"] == 0
    assert len(concluded["concluded_from"]) == 2
    assert booted.boots(THIRD)["last_boot_id"] == SECOND


def test_a_device_that_tells_nothing_is_mentioned(booted: Board) -> None:
    shutil.rmtree(booted.root / "sys/class/watchdog")
    concluded = booted.boots(SECOND)
    assert concluded["cause"] == "power loss"
    assert concluded["bootstatus"] is None
    assert ("The watchdog device does not tell whether it reset the board."
            in concluded["concluded_from"])


@pytest.mark.parametrize(("value", "cause"), [
    ("32", BY_DEVICE), ("33", BY_DEVICE), ("1", "power loss"), ("64", "power loss"),
    ("0x20", "power loss"), ("-32", "power loss"), ("032", "power loss")])
def test_the_device_tells_a_reset_by_a_bit(booted: Board, value: str, cause: str) -> None:
    booted.bootstatus(value)
    assert booted.boots(SECOND)["cause"] == cause


def test_a_reset_by_the_device_needs_no_earlier_boot(board: Board) -> None:
    board.bootstatus("32")
    assert board.boots(FIRST)["cause"] == BY_DEVICE


@pytest.mark.parametrize(("reason", "cause"), [
    ("third-end", "third end"), ("read-only-root", "read-only root"), ("orderly", "orderly")])
def test_a_noted_end_counts_once(booted: Board, reason: str, cause: str) -> None:
    booted.end(reason)
    concluded = booted.boots(SECOND)
    assert concluded["cause"] == cause
    assert (concluded["end_reason"], concluded["end_time"]) == (reason, TIME)
    assert not booted.state("end").exists()
    assert booted.boots(THIRD)["cause"] == "power loss"


def test_an_end_of_another_boot_does_not_count(booted: Board) -> None:
    booted.end("third-end", SECOND)
    assert booted.boots(THIRD)["cause"] == "power loss"
    assert not booted.state("end").exists()


@pytest.mark.parametrize("place", ["sys/fs/pstore", "var/lib/systemd/pstore",
                                   "var/lib/systemd/pstore/1700000000/001"])
def test_a_panic(booted: Board, place: str) -> None:
    booted.write(f"{place}/dmesg-ramoops-0", "Panic#1 Part1\n<0>[ 1.5] Kernel panic\n")
    concluded = booted.boots(SECOND)
    assert concluded["cause"] == "panic"
    assert concluded["panic_record"] == f"/{place}/dmesg-ramoops-0"
    assert booted.boots(THIRD)["cause"] == "power loss"


def test_a_panic_is_told_once_also_if_its_record_moves(booted: Board) -> None:
    record = booted.record("Panic#1 Part1\n<0>[ 1.5] first\n")
    assert booted.boots(SECOND)["cause"] == "panic"
    moved = booted.write("var/lib/systemd/pstore/dmesg-ramoops-0", record.read_bytes())
    record.write_bytes(b"Panic#1 Part1\n<0>[ 1.5] again\n")
    assert booted.boots(THIRD)["cause"] == "panic"
    record.unlink()
    assert moved.exists()
    assert booted.boots(FIRST)["cause"] == "power loss"


@pytest.mark.parametrize("content", ["Oops#1 Part1\nPanic#1\n", "\0(Panic#1", ""])
def test_other_records_are_no_panic(booted: Board, content: str) -> None:
    booted.record(content)
    booted.record("Panic#1 Part1\n", "console-ramoops-0")
    assert booted.boots(SECOND)["cause"] == "power loss"


def test_a_panic_before_the_first_known_boot_is_only_mentioned(board: Board) -> None:
    board.record("Panic#1 Part1\n")
    concluded = board.boots(FIRST)
    assert concluded["cause"] == "unknown"
    assert "There is the record of a panic" in concluded["concluded_from"][-1]
    assert board.boots(SECOND)["cause"] == "power loss"


def test_an_old_panic_is_no_cause_of_a_reset_by_the_device(board: Board) -> None:
    board.record("Panic#1 Part1\n")
    board.bootstatus("32")
    assert board.boots(FIRST)["cause"] == BY_DEVICE


def test_an_end_in_the_memory_of_the_kernel(booted: Board) -> None:
    """A read-only root file system may hold the state directory."""
    line = f"pynx-watchdog: end {FIRST} read-only-root {TIME}\n"
    booted.record(b"\0\xffnoise " + line.encode() + b"other\0", "pmsg-ramoops-0")
    concluded = booted.boots(SECOND)
    assert concluded["cause"] == "read-only root"
    assert concluded["end_time"] == TIME
    assert booted.boots(THIRD)["cause"] == "power loss"


def test_an_end_of_a_boot_that_could_not_be_noted(booted: Board) -> None:
    """The root file system was read-only all through the last boot, and "running" is older."""
    booted.record(f"pynx-watchdog: end {SECOND} read-only-root {TIME}\n", "pmsg-ramoops-0")
    assert booted.boots(THIRD)["cause"] == "read-only root"


def test_the_last_of_several_ends_counts(booted: Board) -> None:
    booted.end("third-end")
    booted.record(f"pynx-watchdog: end {FIRST} third-end {TIME}\n"
                  f"pynx-watchdog: end {FIRST} nonsense {TIME}\n"
                  f"pynx-watchdog: end {FIRST} read-only-root {TIME}\n"
                  "pynx-watchdog: end 1 third-end\n", "pmsg-ramoops-0")
    assert booted.boots(SECOND)["cause"] == "read-only root"


@pytest.mark.parametrize(("panic", "end", "bootstatus", "cause"), [
    (True, "third-end", "32", "panic"), (True, "orderly", "0", "panic"),
    (False, "third-end", "32", "third end"), (False, "read-only-root", "32", "read-only root"),
    (False, "orderly", "32", BY_DEVICE)])
def test_which_source_wins_and_that_all_are_told(booted: Board, panic: bool, end: str,
                                                 bootstatus: str, cause: str) -> None:
    if panic:
        booted.record("Panic#1 Part1\n")
    booted.end(end)
    booted.bootstatus(bootstatus)
    concluded = booted.boots(SECOND)
    assert concluded["cause"] == cause
    told = "\n".join(concluded["concluded_from"])
    assert ("the record of a panic" in told) == panic
    assert ("has reset the board" in told) == (bootstatus == "32")
    assert {"third-end": "third end of the application", "read-only-root": "was read-only",
            "orderly": "an orderly shutdown was under way"}[end] in told
    assert concluded["end_reason"] == end


def test_an_orderly_shutdown(booted: Board) -> None:
    pmsg = booted.write("dev/pmsg0", "")
    assert booted.call("stop") == 0
    end = booted.state("end").read_text("ascii")
    assert end.startswith(f"{FIRST} orderly 2")
    assert pmsg.read_text("ascii") == f"pynx-watchdog: end {end}"
    concluded = booted.boots(SECOND)
    assert concluded["cause"] == "orderly"
    assert concluded["end_time"] == end.split()[2]


@pytest.mark.parametrize(("said", "ends"), [("stopping", True), ("offline", True), ("", True),
                                            ("running", False), ("degraded", False)])
def test_a_unit_stopped_by_hand_ends_no_boot(booted: Board, said: str, ends: bool) -> None:
    booted.tool("systemctl", f'[ "$*" = is-system-running ] && echo {said}')
    (booted.root / "run/systemd/system").mkdir(parents=True)
    assert booted.call("stop") == 0
    assert booted.state("end").exists() == ends


def test_a_second_start_in_a_boot_changes_nothing(booted: Board) -> None:
    booted.end("third-end")
    concluded = booted.boots(SECOND)
    # The shutdown did not take place.
    assert booted.call("stop") == 0
    assert booted.call("start") == 0
    assert booted.told() == concluded
    assert not booted.state("end").exists()
    booted.end("third-end", SECOND)
    assert booted.call("start") == 0
    assert booted.boots(THIRD)["cause"] == "third end"


def test_a_second_start_whose_report_is_gone_knows_no_cause(booted: Board) -> None:
    assert booted.boots(FIRST)["cause"] == "unknown"


def test_the_boot_flags_are_those_before_they_are_cleared(booted: Board) -> None:
    booted.tool("fw_printenv", '[ "$*" = "fail boot_count" ] && echo fail=1 && echo boot_count=2')
    concluded = booted.boots(SECOND)
    assert (concluded["fail"], concluded["boot_count"]) == ("1", "2")
    booted.tool("fw_printenv", "printf 'fail=\"\\\\\\n\\351\\n'; exit 1")
    concluded = booted.boots(THIRD)
    assert (concluded["fail"], concluded["boot_count"]) == ('"\\', None)


def test_the_system_log_has_the_cause(booted: Board) -> None:
    booted.boots(SECOND)
    assert (booted.root / "system-log").read_text("ascii").splitlines()[-1] == \
        "-t pynx_watchdog Cause of this boot: power loss"


@pytest.mark.parametrize("content", GARBLED, ids=range(len(GARBLED)))
@pytest.mark.parametrize("name", [
    "var/lib/pynx-watchdog/end", "var/lib/pynx-watchdog/records-seen",
    "sys/fs/pstore/dmesg-ramoops-0", "sys/fs/pstore/pmsg-ramoops-0",
    "sys/class/watchdog/watchdog0/bootstatus"])
def test_a_garbled_source_tells_nothing(booted: Board, name: str, content: bytes) -> None:
    booted.write(name, content)
    assert booted.boots(SECOND)["cause"] == "power loss"


@pytest.mark.parametrize("content", GARBLED, ids=range(len(GARBLED)))
def test_a_garbled_note_of_the_last_boot_makes_the_cause_unknown(booted: Board,
                                                                 content: bytes) -> None:
    booted.state("running").write_bytes(content)
    assert booted.boots(SECOND)["cause"] == "unknown"
    assert booted.boots(THIRD)["cause"] == "power loss"


@pytest.mark.parametrize("content", GARBLED, ids=range(len(GARBLED)))
def test_a_garbled_boot_id_is_not_noted(booted: Board, content: bytes) -> None:
    booted.write("proc/sys/kernel/random/boot_id", content)
    assert booted.call("start") == 0
    assert booted.state("running").read_text("ascii").startswith(FIRST)
    assert booted.call("stop") == 1
    assert not booted.state("end").exists()


def test_a_time_that_is_none_is_left_out(booted: Board) -> None:
    booted.end("third-end", time="soon")
    concluded = booted.boots(SECOND)
    assert (concluded["cause"], concluded["end_time"]) == ("third end", None)


@pytest.mark.parametrize("name", [
    "var/lib/pynx-watchdog/end", "var/lib/pynx-watchdog/running", "sys/fs/pstore/dmesg-ramoops-0",
    "sys/class/watchdog/watchdog0/bootstatus", "proc/sys/kernel/random/boot_id"])
def test_what_is_no_file_is_not_waited_for(booted: Board, name: str) -> None:
    place = booted.root / name
    place.parent.mkdir(parents=True, exist_ok=True)
    place.unlink(missing_ok=True)
    os.mkfifo(place)
    assert booted.call("start") == 0
    booted.told()


@pytest.mark.takes(6)
@pytest.mark.parametrize("tool", ["fw_printenv", "logger"])
def test_a_tool_that_hangs_is_given_up(booted: Board, tool: str) -> None:
    booted.end("third-end")
    booted.tool(tool, "exec sleep 1000")
    assert booted.boots(SECOND)["cause"] == "third end"


def test_without_a_state_directory_the_cause_is_told_all_the_same(board: Board) -> None:
    board.write("var/lib", "a file")
    board.bootstatus("32")
    assert board.boots(FIRST)["cause"] == BY_DEVICE
    assert board.call("stop") == 1


def test_the_state_directory_can_be_elsewhere(board: Board) -> None:
    # systemd gives several directories, separated by colons, if a drop-in adds one.
    board.boots(FIRST, STATE_DIRECTORY="/data/state:/data/another")
    assert (board.root / "data/state/running").exists()
    assert not board.state("running").exists()
    assert board.boots(SECOND, STATE_DIRECTORY="/data/state")["cause"] == "power loss"


def test_a_report_that_cannot_be_written_is_a_failure(booted: Board) -> None:
    shutil.rmtree(booted.root / "tmp")
    booted.write("tmp", "a file")
    booted.write("proc/sys/kernel/random/boot_id", f"{SECOND}\n")
    assert booted.call("start") == 1
    # The next boot still knows which one was the last.
    assert booted.state("running").read_text("ascii").startswith(SECOND)


@pytest.mark.parametrize("arguments", [[], ["restart"], ["start", "stop"], [""]])
def test_wrong_usage(board: Board, arguments: list[str]) -> None:
    assert board.call(*arguments) == 2
    assert not board.report.exists()
