# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The watchdog device of a board on which all is well, until the supervisor's own data is not."""

from __future__ import annotations

import re

import pytest

from board import WATCHDOG_SECONDS, Board, Measured, NewBoard
from qmp import RESET, WATCHDOG
from simulator import wait_until

_FED_SECONDS = 90
_MEMORY_REPORT_SECONDS = 180


@pytest.mark.takes(240)
class TestFeeding:
    """A healthy board for three minutes."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        return new_board(settings={"WatchdogMemoryReportingConf": True})

    def test_the_device_is_armed_with_thirty_seconds(self, board: Board) -> None:
        board.wait_for_feeds(1, timeout=60)
        events = board.boots[-1].events
        assert [event.name for event in events[:2]] == ["watchdog_start", "watchdog_set_timeout"]
        assert f"timeout={WATCHDOG_SECONDS} err=0" in events[1].text
        assert {event.pid for event in events} == {board.supervisor()}
        assert board.check("cat /sys/class/watchdog/watchdog0/state") == "active"

    def test_the_flags_are_cleared_after_ten_seconds(self, board: Board,
                                                     measured: Measured) -> None:
        assert "last boot good, sets fail=1 boot_count=1" in board.console.text()
        board.journal.wait_for("sfuflags: -f boot_count -v 0")
        wait_until(lambda: board.flags == (0, 0), "cleared flags")
        called = [float(time) for time in re.findall(r"sfuflags: .* at ([\d.]+) s",
                                                     board.journal.text())]
        started = board.boots[-1].events[0].time
        assert len(called) == 2 and called[0] - started > 9.5  # a coarse timer
        measured("flags cleared after the start", f"{called[0] - started:.1f} s")
        assert board.run("ls /home/root/ro-test").status != 0

    def test_the_application_does_not_hold_the_device(self, board: Board) -> None:
        # Not the first one, which starts before the device is opened.
        first = board.application()
        board.check(f"kill {first}")
        second = board.application(unlike=first)
        listing = "for fd in /proc/{}/fd/*; do readlink $fd; done"
        assert "/dev/watchdog" in board.check(listing.format(board.supervisor()))
        assert "/dev/watchdog" not in board.check(listing.format(second))

    def test_it_is_fed_for_ninety_seconds_and_not_reset(self, board: Board,
                                                        measured: Measured) -> None:
        wait_until(lambda: len(times := board.boots[-1].feeds) > 1
                   and times[-1] - times[0] >= _FED_SECONDS, "feeds", _FED_SECONDS * 2)
        assert board.hardware() == []
        assert len(board.boots) == 1
        feeds = board.boots[-1].feeds
        # Two at the start, one with the time-out and one at its end; then one every ten seconds.
        regular = board.boots[-1].gaps()[2:]
        assert all(5 < gap < 20 for gap in regular), feeds
        measured(f"feed gaps of a healthy board, {len(regular)} of them",
                 f"{min(regular):.3f} s to {max(regular):.3f} s")

    def test_an_assertion_of_the_supervisor_is_followed_by_a_reset(self, board: Board,
                                                                   measured: Measured) -> None:
        # A line without a value: the kernel never writes one, so that the memory report takes it
        # for an internal error.
        board.check("echo 'MemFree:' >/run/meminfo && mount --bind /run/meminfo /proc/meminfo")
        mark = board.mark
        board.console.wait_for("ASSERT", timeout=_MEMORY_REPORT_SECONDS + 60)
        assert board.run("pgrep --exact pynx-watchdog").status != 0
        expired = board.wait_for_hardware(WATCHDOG, mark)
        board.wait_for_hardware(RESET, expired.index)
        gap = board.board_time(expired.time) - board.boots[-1].feeds[-1]
        measured("reset after the last feed, supervisor ended by an assertion", f"{gap:.1f} s")
        board.wait_until_up()
        assert board.check("cat /sys/class/watchdog/watchdog0/bootstatus") == "32"
        assert board.application()
