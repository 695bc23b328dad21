# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A root file system that is read-only at boot, or turns read-only while the board runs."""

from __future__ import annotations

import pytest

from board import Board, NewBoard, supervise
from boot_environment import FRESH
from qmp import RESET
from simulator import wait_until

_MESSAGE = "Detected filesystem in read-only mode. Rebooting\n"
_LOG = "/tmp/log/application.log"  # not on the root, where it could not be opened


def _is_given_up(board: Board) -> None:
    """The check of the marker file fails: told, variable dropped, rebooted."""
    assert board.environment["update_url_cache"] == FRESH["update_url_cache"]
    board.console.wait_for(_MESSAGE)
    board.wait_for_hardware(RESET)
    assert board.hardware() == [RESET]  # by the command, not by the watchdog device
    assert "update_url_cache" not in board.environment
    assert "sfuflags: -f" not in board.journal.text()


def _recovers(board: Board) -> None:
    """The next boot finds a writable root, and clears the flags that the bad one left set."""
    board.wait_until_up()
    board.console.wait_for("boot loader: last boot not confirmed")
    assert board.application()
    wait_until(lambda: board.flags == (0, 0), "cleared flags")
    assert "update_url_cache" not in board.environment
    assert board.console.text().count(_MESSAGE) == 1


@pytest.mark.takes(50)
class TestReadOnlyAtBoot:
    """The root is mounted read-only."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        running = new_board(supervise(log=_LOG), root_options="ro")
        running.set_root_options("rw,errors=remount-ro")
        return running

    def test_it_is_told_and_the_board_rebooted(self, board: Board) -> None:
        assert board.run("touch /home/root/ro-test").status != 0
        _is_given_up(board)

    def test_the_next_boot_is_good(self, board: Board) -> None:
        _recovers(board)


@pytest.mark.takes(50)
class TestReadOnlyFallback:
    """The kernel gives up writing after an error of the file system."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        # With a flag tool that fails at first the flags are still to be cleared when it happens;
        # once they are, the root is not looked at any more.
        return new_board(supervise(log=_LOG), tools={"sfuflags": "exit 1"})

    def test_it_is_told_and_the_board_rebooted(self, board: Board) -> None:
        board.journal.wait_for("Error occured during process startup, code: 5")
        board.check("touch /home/root/before && sync")
        board.check("echo 1 >/sys/fs/ext4/vdc/trigger_fs_error")
        assert board.run("touch /home/root/after").status != 0
        board.console.wait_for("Remounting filesystem read-only")
        assert board.hardware() == []
        board.mend_tool("sfuflags")
        board.check(f"kill {board.application()}")
        _is_given_up(board)

    def test_the_next_boot_is_good(self, board: Board) -> None:
        _recovers(board)
        board.check("ls /home/root/before")
