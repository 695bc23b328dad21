# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Tools that hang, a disk that is full: what becomes of the board, and how long it goes unfed."""

from __future__ import annotations

import re

import pytest

from board import LOG, SAMPLE, WATCHDOG_SECONDS, Board, Measured, NewBoard, supervise
from qmp import RESET, WATCHDOG
from simulator import wait_until

_SNAPSHOTS = "/tmp/log/system"
_HANGS = "exec sleep 100000"


def _largest_gap(board: Board) -> float:
    return max(board.boots[-1].gaps())


@pytest.mark.takes(100)
class TestHungTop:
    """`top` never ends: it is given up after as long as the watchdog device waits for its feed."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        return new_board(tools={"top": _HANGS})

    def test_the_supervisor_waits_out_its_limit_or_the_board_is_reset(self, board: Board,
                                                                      measured: Measured) -> None:
        wait_until(lambda: WATCHDOG in board.hardware()
                   or any(gap > WATCHDOG_SECONDS - 5 for gap in board.boots[-1].gaps()),
                   "a long gap between feeds, or a reset", 120)
        expired = [event for event in board.monitor.events if event.name == WATCHDOG]
        if expired:
            gap = board.board_time(expired[0].time) - board.boots[0].feeds[-1]
            measured("feed gap with a hung top", f"{gap:.2f} s, ended by the watchdog device")
        else:
            gap = _largest_gap(board)
            measured("feed gap with a hung top", f"{gap:.2f} s, fed again in time")
        assert WATCHDOG_SECONDS - 1 < gap < WATCHDOG_SECONDS + 10

    def test_the_next_boot_with_a_working_top_is_good(self, board: Board) -> None:
        (board.directory / "host/tools/top").unlink()
        board.wait_for_hardware(RESET)
        board.wait_until_up()
        assert board.application()
        wait_until(lambda: b"load average" in board.run(f"cat {_SNAPSHOTS}").output, "a snapshot")


@pytest.mark.takes(50)
class TestSlowTop:
    """`top` takes long, but less than the supervisor's limit and the watchdog device's."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        return new_board(tools={"top": "sleep 15; echo slow top"})

    def test_the_feed_is_late_and_the_board_is_not_reset(self, board: Board,
                                                         measured: Measured) -> None:
        wait_until(lambda: b"slow top" in board.run(f"cat {_SNAPSHOTS}").output, "a snapshot", 120)
        fed = len(board.boots[-1].feeds)
        board.wait_for_feeds(fed + 1, 60)
        gap = _largest_gap(board)
        measured("feed gap with a top of 15 s", f"{gap:.2f} s")
        assert 14 < gap < WATCHDOG_SECONDS
        assert board.hardware() == []


@pytest.mark.takes(60)
class TestHungFlagTool:
    """`sfuflags` never ends."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        return new_board(tools={"sfuflags": f"logger -t hung-sfuflags -- \"$*\"; {_HANGS}"})

    def test_it_is_given_up_and_told(self, board: Board, measured: Measured) -> None:
        board.journal.wait_for("Error occured during process startup, code: 2")
        journal = board.journal.text()
        assert re.search(r"user\.err pynx_watchdog: Error occured during process startup, code: 2",
                         journal)
        assert re.findall(r"hung-sfuflags: (.*)", journal) == ["-f fail -v 0"]
        assert board.flags == (1, 1)
        fed = len(board.boots[-1].feeds)
        board.wait_for_feeds(fed + 1, 60)
        measured("feed gap with a hung sfuflags", f"{_largest_gap(board):.2f} s")
        assert _largest_gap(board) < WATCHDOG_SECONDS
        assert board.hardware() == []

    def test_nothing_of_it_is_left(self, board: Board) -> None:
        assert board.run("pgrep --full 'sfuflags|sleep 100000'").text == ""

    def test_it_is_tried_again_after_the_applications_next_start(self, board: Board) -> None:
        board.mend_tool("sfuflags")
        board.check(f"kill {board.application()}")
        wait_until(lambda: board.flags == (0, 0), "cleared flags")
        assert board.hardware() == []


@pytest.mark.takes(60)
class TestFullDisk:
    """Root and /tmp have no byte left."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        # With a flag tool that fails at first the flags are still to be cleared on the full disk.
        return new_board(supervise(SAMPLE, "demonstrate"), tools={"sfuflags": "exit 1"})

    def test_the_board_goes_on(self, board: Board, measured: Measured) -> None:
        board.journal.wait_for("Error occured during process startup, code: 5")
        for place in ("/fill", "/tmp/fill"):
            board.run(f"dd if=/dev/zero of={place} bs=1M; dd if=/dev/zero bs=512 >>{place}")
        assert board.run("echo more >/home/root/more").status != 0
        board.mend_tool("sfuflags")
        first = board.application()
        board.check(f"kill {first}")
        application = board.application(unlike=first)
        wait_until(lambda: board.flags == (0, 0), "cleared flags")  # the marker takes no space
        feeds = board.wait_for_feeds(len(board.boots[-1].feeds) + 3, 90)
        measured("feed gap with a full disk", f"{_largest_gap(board):.2f} s")
        assert len(feeds) > 3 and _largest_gap(board) < WATCHDOG_SECONDS
        assert board.application() == application
        assert board.hardware() == []
        assert "Critical FW error" not in board.console.text()

    def test_the_log_stands_still_and_goes_on_when_there_is_space(self, board: Board) -> None:
        held = board.read(LOG)
        board.check("rm /fill /tmp/fill /home/root/more")
        more = wait_until(lambda: text if len(text := board.read(LOG)) > len(held) else b"",
                          "a growing log", 30)
        assert more.startswith(held)
        assert more.decode().splitlines()[-2].startswith("sample application: alive for ")
        wait_until(lambda: b"load average" in board.run(f"cat {_SNAPSHOTS}").output, "a snapshot")
