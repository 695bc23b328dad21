# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The process that makes the box and holds it: namespaces, root file system, then the board.

Started by the outer process as `python -m simulator.box DIRECTORY CONTROL DOORBELL LIFELINE`; the
last three are inherited descriptors. It waits for the board's end, and kills the board as soon as
nobody holds the other end of the lifeline any more. The kernel kills the board if this process
itself is killed. When PID 1 of the box dies, the kernel ends everything in the box.
"""

from __future__ import annotations

import os
import select
import signal
import socket
import sys
from pathlib import Path

from simulator import kernel, paths, root
from simulator.account import AccountWriter
from simulator.board import Board
from simulator.configuration import Configuration
from simulator.device_directory import DeviceDirectory
from simulator.errors import SimulatorError

_HOST_NAME = "simulated-device"
_NAMESPACES = kernel.CLONE_NEWNS | kernel.CLONE_NEWPID | kernel.CLONE_NEWIPC | kernel.CLONE_NEWUTS


def enter_namespaces() -> None:
    """Leave the host's namespaces.

    Root stays itself, so that the supervisor can run its application under another account; an
    ordinary user becomes root of a user namespace that has no account but this one.
    """
    if os.geteuid() == 0:
        with root.step("create namespaces for the box"):
            kernel.unshare(_NAMESPACES)
        return
    uid, gid = os.geteuid(), os.getegid()
    with root.step("create a user namespace for the box (the kernel allows it to root, or to "
                   "everybody where kernel.unprivileged_userns_clone and user.max_user_namespaces "
                   "are not 0)"):
        kernel.unshare(kernel.CLONE_NEWUSER)
    with root.step("become root of the box' user namespace"):
        Path("/proc/self/setgroups").write_text("deny", encoding="ascii")
        Path("/proc/self/uid_map").write_text(f"0 {uid} 1", encoding="ascii")
        Path("/proc/self/gid_map").write_text(f"0 {gid} 1", encoding="ascii")
    with root.step("create namespaces for the box"):
        kernel.unshare(_NAMESPACES)


def run_board(configuration: Configuration, control_fd: int, doorbell_fd: int) -> None:
    """PID 1 of the box."""
    kernel.die_with_parent(signal.SIGKILL)
    directory = DeviceDirectory(configuration.directory)
    log = AccountWriter(directory.append_to(paths.ACCOUNT), doorbell_fd)
    root.enter()
    socket.sethostname(_HOST_NAME)
    Board(configuration, directory, log, socket.socket(fileno=control_fd)).run()


def hold(board_pid: int, lifeline_fd: int) -> int:
    """Wait for the board's end; end it when the lifeline is cut."""
    board_fd = os.pidfd_open(board_pid)
    ready, _, _ = select.select([board_fd, lifeline_fd], [], [])
    if board_fd not in ready:
        os.kill(board_pid, signal.SIGKILL)
    return os.waitstatus_to_exitcode(os.waitpid(board_pid, 0)[1])


def main(arguments: list[str]) -> int:
    """Build the box, run the board in it, and hold the box until the board's end."""
    directory = arguments[0]
    control_fd, doorbell_fd, lifeline_fd = (int(argument) for argument in arguments[1:])
    for descriptor in (control_fd, doorbell_fd, lifeline_fd):
        os.set_inheritable(descriptor, False)
    os.set_blocking(doorbell_fd, False)
    os.umask(0o022)
    configuration = Configuration.load(Path(directory, paths.CONFIGURATION))
    try:
        enter_namespaces()
        root.build(configuration)
        board_pid = os.fork()
        if board_pid == 0:
            os.close(lifeline_fd)
            run_board(configuration, control_fd, doorbell_fd)
            return 0
    except SimulatorError as error:
        print(error, file=sys.stderr)
        return 1
    os.close(control_fd)
    os.close(doorbell_fd)
    return 1 if hold(board_pid, lifeline_fd) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
