# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A root file system that turns read-only, has no space left, or loses its power."""

from __future__ import annotations

import re

import pytest

from boot_environment import FRESH
from emulated_board import LOG, SAMPLE, NewBoard, supervise
from qmp import RESET
from simulator import wait_until

_MESSAGE = "Detected filesystem in read-only mode. Rebooting\n"
_APPLICATION = "/usr/lib/application"
_FLAG_TOOL_FAILS = "exit 1"
"""Keeps the flags from being cleared. Once they are, the root is not checked again."""


@pytest.mark.takes(60)
def test_a_root_that_turns_read_only_is_told_and_the_board_rebooted(
        new_emulated_board: NewBoard) -> None:
    # The log is on another file system, because it could not be opened on the root.
    board = new_emulated_board(supervise(log="/tmp/log/application.log"),
                               tools={"sfuflags": _FLAG_TOOL_FAILS})
    board.journal.wait_for("Error occured during process startup, code: 5")
    board.check("touch /home/root/before && sync")
    board.check("echo 1 >/sys/fs/ext4/vdc/trigger_fs_error")
    assert board.run("touch /home/root/after").status != 0
    board.console.wait_for("Remounting filesystem read-only")
    assert board.hardware() == []
    board.mend_tool("sfuflags")
    assert board.environment["update_url_cache"] == FRESH["update_url_cache"]
    board.check(f"kill {board.application()}")
    board.console.wait_for(_MESSAGE)
    board.wait_for_hardware(RESET)
    assert board.hardware() == [RESET]  # by the command, not by the watchdog device
    assert "update_url_cache" not in board.environment
    assert re.findall(r"fw_setenv: (.*) at", board.journal.text()) == ["update_url_cache"]

    # The next boot finds a writable root and clears the flags that the last one has left.
    board.wait_until_up()
    board.console.wait_for("boot loader: last boot not confirmed")
    assert board.application()
    wait_until(lambda: board.flags == (0, 0), "cleared flags")
    assert "update_url_cache" not in board.environment
    assert board.console.text().count(_MESSAGE) == 1
    board.check("ls /home/root/before")


@pytest.mark.takes(60)
def test_a_full_disk_stops_neither_the_board_nor_its_confirmation(
        new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(supervise(SAMPLE, "demonstrate"),
                               tools={"sfuflags": _FLAG_TOOL_FAILS})
    board.journal.wait_for("Error occured during process startup, code: 5")
    for place in ("/fill", "/tmp/fill"):
        board.run(f"dd if=/dev/zero of={place} bs=1M; dd if=/dev/zero bs=512 >>{place}")
    assert board.run("echo more >/home/root/more").status != 0
    board.mend_tool("sfuflags")
    first = board.application()
    board.check(f"kill {first}")
    application = board.application(unlike=first)
    wait_until(lambda: board.flags == (0, 0), "cleared flags")  # the marker is an empty file
    board.wait_for_feeds(len(board.boots[-1].feeds) + 3, 90)
    assert board.application() == application
    assert board.hardware() == []
    assert "Critical FW error" not in board.console.text()

    # The log stops while there is no space and goes on when there is.
    held = board.read(LOG)
    board.check("rm /fill /tmp/fill /home/root/more")
    more = wait_until(lambda: text if len(text := board.read(LOG)) > len(held) else b"",
                      "a growing log", 30)
    assert more.startswith(held)
    assert more.decode().splitlines()[-2].startswith("sample application: alive for ")


@pytest.mark.takes(30)
def test_the_log_outlives_a_power_cut_and_is_continued(new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(supervise(_APPLICATION, log_size="48k"), files={
        _APPLICATION: f"#!/bin/sh\n{SAMPLE} flood 60000 1000; until [ -e /tmp/rotated ]; do "
                      "sleep 0.1; done; echo last line; exec sleep 100000"})
    wait_until(lambda: board.run(f"ls {LOG}.0").status == 0, "a rotation")
    board.check("touch /tmp/rotated")
    wait_until(lambda: board.run(f"tail -n1 {LOG}").text == "last line", "the last line")
    rotated, current = board.read(f"{LOG}.0"), board.read(LOG)
    assert (rotated + current).count(b"out ") == 600
    board.check("sync")  # writes what the kernel has, but not what the supervisor buffers
    board.set_arguments(supervise(log_size="48k"))
    board.power_cut()
    board.start()
    board.wait_until_up()
    assert board.application()
    assert board.read(f"{LOG}.0") == rotated
    wait_until(lambda: board.read(LOG) != current, "a continued log")
    assert board.read(LOG).startswith(current + b"\n\n")
    assert "EXT4-fs error" not in board.console.text()
