# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Who the application is on the board, as the kernel tells it; and the package's own files."""

from __future__ import annotations

import pytest

from board import LOG, SAMPLE, Board, NewBoard, supervise
from simulator import wait_until

_USER, _GROUP, _GROUPS = "1000", "1000", {"20", "44", "1000"}  # as in the board's etc


@pytest.mark.takes(15)
class TestIdentity:
    """The application runs as the user pynx."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        return new_board(supervise(SAMPLE, "identity", "descriptors", "wait",
                                   options=["--user", "pynx"]))

    def test_identity_and_groups(self, board: Board) -> None:
        status = dict(line.split(":\t", 1) for line in
                      board.check(f"cat /proc/{board.application()}/status").splitlines()
                      if ":\t" in line)
        assert set(status["Uid"].split()) == {_USER}
        assert set(status["Gid"].split()) == {_GROUP}
        assert set(status["Groups"].split()) == _GROUPS
        assert set(status["CapEff"]) == {"0"}
        assert f"uid {_USER} euid {_USER} gid {_GROUP} egid {_GROUP} groups 20 44 1000\n" \
            in board.read(LOG).decode()

    def test_descriptors(self, board: Board) -> None:
        # Of the second application, since the first starts before the supervisor opens most of its.
        first = board.application()
        board.check(f"kill {first}")
        second = board.application(unlike=first)
        assert board.check(f"ls /proc/{second}/fd").split() == ["0", "1", "2"]
        wait_until(lambda: board.read(LOG).count(b"descriptors 0 1 2\n") == 2, "both lines")

    def test_the_supervisor_stays_root(self, board: Board) -> None:
        uids = board.check(f"grep Uid: /proc/{board.supervisor()}/status").split()[1:]
        assert set(uids) == {"0"}

    def test_the_command_in_the_path_is_the_installed_program(self, board: Board) -> None:
        usage = board.run("pynx-watchdog")
        assert usage.status == 1
        assert usage.text.startswith("Usage: watchdog executable [args] --app <app> [appargs]")
        executable = board.check(f"readlink /proc/{board.supervisor()}/exe")
        assert executable == "/usr/lib/pynx-watchdog/watchdog"
        board.check("ls /usr/lib/pynx-watchdog/settings-default/WatchdogWatchProcessList.json")

    def test_the_boards_tools_are_the_real_ones(self, board: Board) -> None:
        paths = board.check("for tool in sh reboot killall top free tar gzip fw_setenv syslogd; "
                            "do readlink -f $(command -v $tool); done")
        assert [path.rpartition("/")[2] for path in paths.split()] == [
            "dash", "busybox", "killall", "top", "free", "tar", "gzip", "fw_setenv", "busybox"]
        assert "GNU tar" in board.check("tar --version")
        assert "procps-ng" in board.check("top -V")
