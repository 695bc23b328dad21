# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A board without faults: what its kernel and its boot loader see."""

from __future__ import annotations

import re

import pytest

from emulated_board import WATCHDOG_SECONDS, NewBoard
from simulator import wait_until

_FEEDS = 8


@pytest.mark.takes(80)
def test_a_healthy_board_is_fed_and_its_boot_confirmed(new_emulated_board: NewBoard) -> None:
    board = new_emulated_board()
    board.wait_for_feeds(1, timeout=60)
    armed = board.boots[-1].events
    assert [event.name for event in armed[:2]] == ["watchdog_start", "watchdog_set_timeout"]
    assert f"timeout={WATCHDOG_SECONDS} err=0" in armed[1].text
    assert {event.pid for event in armed} == {board.supervisor()}
    assert board.check("cat /sys/class/watchdog/watchdog0/state") == "active"

    # The supervisor clears the boot loader's flags ten seconds after its start.
    assert "last boot good, sets fail=1 boot_count=1" in board.console.text()
    board.journal.wait_for("fw_setenv: boot_count 0 at ")
    wait_until(lambda: board.flags == (0, 0), "cleared flags")
    called = [float(time) for time in re.findall(r"fw_setenv: .* at ([\d.]+) s",
                                                 board.journal.text())]
    assert len(called) == 2 and called[0] - armed[0].time > 9.5  # the timer is coarse
    assert board.run("ls /home/root/ro-test").status != 0

    # The start feeds twice: with the time-out and at its end. Then a feed follows every ten
    # seconds.
    feeds = board.wait_for_feeds(_FEEDS, timeout=_FEEDS * 20)
    assert all(later - earlier > 5 for earlier, later in zip(feeds[2:], feeds[3:])), feeds
    assert board.hardware() == []
    assert len(board.boots) == 1
