# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The power is cut while the log rotates: what the next boot finds of it."""

from __future__ import annotations

import math
import random
import re
import time
from pathlib import Path

import pytest

from board import LOG, Board, Measured, NewBoard, supervise
from simulator import wait_until

_CUTS = 5
"""For each of the two ways to mount the root, so ten in all."""

_LOG_SIZE = "48k"
_LOGGED_SECONDS = 16
"""At least so long before a cut, more than may be lost."""

# A hundred numbered lines a second, in groups of ten; how far it has come is told to the host,
# where no cut reaches it.
_APPLICATION = (
    "boot=$(grep -c ^boot /host/feeds); "
    "while :; do n=0; while [ $n -lt 10 ]; do n=$((n + 1)); i=$((i + 1)); "
    f"echo \"line $boot $i {'.' * 80}\"; done; "
    "read up rest </proc/uptime; echo $boot $i $up >>/host/progress; sleep 0.1; done")

_KEEP_WHAT_IS_FOUND = "rm -rf /host/found; cp -r /var/log/application /host/found"


class _PowerCut:
    """Cuts the power at random moments, each after the log has rotated in that boot."""

    MOUNTED = ""
    LOST_AT_MOST = math.inf
    """Seconds; generously."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        return new_board(supervise("/bin/sh", "-c", _APPLICATION, log_size=_LOG_SIZE),
                         root_options=self.MOUNTED, at_start=_KEEP_WHAT_IS_FOUND)

    @pytest.mark.parametrize("boot", range(1, _CUTS + 1))
    def test_the_board_boots_again_and_the_log_can_be_read(self, board: Board, boot: int,
                                                           measured: Measured) -> None:
        wait_until(lambda: board.run(f"grep -aq 'line {boot} ' {LOG}.0").status == 0, "a rotation")
        wait_until(lambda: _span(_printed(board, boot)) > _LOGGED_SECONDS, "more of the log")
        time.sleep(random.uniform(0, 8))  # the moment of the cut is to be a random one
        board.power_cut()
        board.start()
        board.wait_until_up()

        printed = _printed(board, boot)
        left = {file.name: file.read_bytes() for file in (board.directory / "host/found").iterdir()}
        current = left[Path(LOG).name]
        # There is none when the first rotation is among what was lost.
        rotated = left.get(f"{Path(LOG).name}.0", b"")
        lines = _lines(rotated + current, boot)
        lost = _span({line: second for line, second in printed.items()
                      if line >= max(lines, default=0)})
        missing = max(lines) - min(lines) + 1 - len(lines) if lines else 0
        measured(f"power cut {boot}, root mounted {self.MOUNTED}",
                 f"lost the last {lost:.1f} s of {_span(printed):.1f} s; {len(lines)} lines left, "
                 f"{missing} missing among them; .0 has {len(rotated)} bytes, the log "
                 f"{len(current)}, {(rotated + current).count(0)} of them NUL")
        assert lost < self.LOST_AT_MOST
        assert "EXT4-fs error" not in board.console.text()
        assert board.application("/bin/sh")


@pytest.mark.takes(200)
class TestPowerCut(_PowerCut):
    """The root as a board mounts it whose log is not to lag behind: data go with each commit."""

    MOUNTED = "rw,errors=remount-ro,nodelalloc"
    LOST_AT_MOST = 15.0


@pytest.mark.takes(200)
class TestPowerCutWithDelayedAllocation(_PowerCut):
    """The root as it is mounted by default: the kernel may hold new data back for half a minute."""

    MOUNTED = "rw,errors=remount-ro"


def _printed(board: Board, boot: int) -> dict[int, float]:
    """What the application had printed before the cut: line number → the board's uptime."""
    progress = (board.directory / "host/progress").read_text(encoding="utf-8")
    return {int(line): float(second) for line, second
            in re.findall(rf"^{boot} (\d+) (\d+\.\d+)$", progress, re.MULTILINE)}


def _span(printed: dict[int, float]) -> float:
    return max(printed.values()) - min(printed.values()) if printed else 0.0


def _lines(content: bytes, boot: int) -> set[int]:
    """Numbers of that boot's whole lines."""
    return {int(number) for number in
            re.findall(rf"^line {boot} (\d+) \.{{80}}$".encode(), content, re.MULTILINE)}
