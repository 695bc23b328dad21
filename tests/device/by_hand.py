# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""An emulated board for experiments: runs the lines that are typed, and shows what happens."""

from __future__ import annotations

import argparse
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent.parent))

import images
from emulated_board import SAMPLE, EmulatedBoard, supervise
from remote_control import BoardGone
from scripts.arm64_packages import ToolError
from simulator import SimulatorError


def main() -> int:
    """Build and boot an emulated board; switch it off at the end of the input."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--package", type=Path, help="the supervisor's package for arm64")
    parser.add_argument("--root-options", default="rw,errors=remount-ro",
                        help="how the root is mounted (default: %(default)s)")
    parser.add_argument("--systemd", action="store_true",
                        help="systemd is PID 1, not busybox")
    parser.add_argument("application", nargs="*", default=[SAMPLE, "demonstrate"],
                        help="what the supervisor runs (default: the sample application)")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="board-") as name:
        directory = Path(name)
        try:
            board = EmulatedBoard(directory / "board", images.build(directory, options.package),
                                  supervise(*options.application),
                                  systemd=options.systemd, root_options=options.root_options)
        except ToolError as error:
            print(f"by_hand: no board can be built: {error}", file=sys.stderr)
            return 1
        records = [board.console.path, board.journal.path]
        shown = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "tail", "--quiet",
                                  "--follow=name", "--retry", *records],
                                 stderr=subprocess.DEVNULL)
        try:
            board.start()
            board.wait_until_up()
            print(f"The board is up; its records are in {board.directory}. End with Ctrl-D.")
            for line in sys.stdin:
                _run(board, line)
        except (KeyboardInterrupt, SimulatorError) as error:
            print(error, file=sys.stderr)
        finally:
            board.stop()
            shown.terminate()
            shown.wait()
    return 0


def _run(board: EmulatedBoard, line: str) -> None:
    try:
        completed = board.run(line)
    except BoardGone as error:
        print(error, file=sys.stderr)
        board.wait_until_up()
        return
    sys.stdout.write(completed.output.decode(errors="replace"))
    if completed.status != 0:
        print(f"(exit status {completed.status})")


if __name__ == "__main__":
    sys.exit(main())
