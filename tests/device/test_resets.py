# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A supervisor that is gone, and an application that cannot be kept alive."""

from __future__ import annotations

import time

import pytest

from board import SAMPLE, WATCHDOG_SECONDS, Board, Measured, NewBoard, supervise
from boot_environment import BAD_BOOTS, FRESH
from qmp import RESET, WATCHDOG, HardwareEvent

_BY_WATCHDOG = "32"
"""The kernel's word for a boot after the watchdog device has reset the board (WDIOF_CARDRESET)."""


@pytest.mark.takes(110)
class TestSupervisorGone:
    """Killed and stopped: the hardware resets the board."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        return new_board()

    def test_the_first_boot_is_none_after_a_reset(self, board: Board) -> None:
        assert board.application()
        assert board.check("cat /sys/class/watchdog/watchdog0/bootstatus") == "0"

    def test_killed(self, board: Board, measured: Measured) -> None:
        mark = board.mark
        killed = time.monotonic()
        board.check(f"kill -9 {board.supervisor()}")
        expired = board.wait_for_hardware(WATCHDOG, mark)
        assert expired.data == {"action": "reset"}
        # The kernel feeds once more when the device is closed.
        assert expired.time - killed > WATCHDOG_SECONDS - 1
        measured("reset after kill -9", f"{expired.time - killed:.1f} s")
        self._comes_up_again(board, expired)

    def test_stopped(self, board: Board, measured: Measured) -> None:
        mark = board.mark
        board.check(f"kill -STOP {board.supervisor()}")
        expired = board.wait_for_hardware(WATCHDOG, mark)
        gap = board.board_time(expired.time) - board.boots[-1].feeds[-1]
        assert gap > WATCHDOG_SECONDS - 1
        measured("reset after the last feed, supervisor stopped", f"{gap:.1f} s")
        self._comes_up_again(board, expired)

    @staticmethod
    def _comes_up_again(board: Board, expired: HardwareEvent) -> None:
        reset = board.wait_for_hardware(RESET, expired.index)
        board.wait_until_up()
        assert board.application()
        assert board.check("cat /sys/class/watchdog/watchdog0/bootstatus") == _BY_WATCHDOG
        assert board.hardware(reset.index) == [RESET]
        assert "write" not in {event.name for boot in board.boots for event in boot.events}


@pytest.mark.takes(60)
class TestDyingApplication:
    """The application ends at once, at every boot."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        return new_board(supervise(SAMPLE, "exit", "5"), wait=False)

    def test_the_third_end_is_told_and_reboots_the_board(self, board: Board) -> None:
        board.console.wait_for("Critical FW error, rebooting.\n")
        board.wait_for_hardware(RESET)
        assert set(board.hardware()) == {RESET}  # by the command, not by the watchdog device
        first_boot = board.journal.text().split("syslogd started")[1]
        # The third end has rebooted the board instead.
        assert first_boot.count("Restarting process: exit code:5, exist status:0") == 2

    def test_the_flags_are_left_set(self, board: Board) -> None:
        board.console.wait_for("boot loader: last boot not confirmed, "
                               "sets fail=1 boot_count=2 and starts the system")
        assert board.flags[0] == 1
        assert "sfuflags" not in board.journal.text()

    def test_the_boot_loader_falls_back_after_too_many_bad_boots(self, board: Board) -> None:
        board.console.wait_for("fallback system: running", timeout=120)
        console = board.console.text()
        assert f"the flags were not cleared in {BAD_BOOTS} boots, more than {BAD_BOOTS} " \
               "are not allowed: the fallback system starts now" in console
        assert console.count("Critical FW error, rebooting.\n") == BAD_BOOTS
        assert board.hardware() == [RESET] * BAD_BOOTS
        assert board.flags == (1, BAD_BOOTS)
        assert board.environment["update_url_cache"] == FRESH["update_url_cache"]
