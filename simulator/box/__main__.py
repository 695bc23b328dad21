# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The process that makes the box and holds it: namespaces, root file system, then PID 1.

The outer process starts it as `python -m simulator.box DIRECTORY CONTROL DOORBELL LIFELINE`. The
last three are inherited descriptors. It waits for the end of PID 1. It kills PID 1 as soon as no
process holds the other end of the lifeline. The kernel kills PID 1 if this process is killed. When
PID 1 dies, the kernel ends everything in the box.
"""

from __future__ import annotations

import os
import select
import signal
import socket
import sys
from pathlib import Path

from simulator.box import kernel, root
from simulator.box.boot_loader import BootLoader
from simulator.box.init import Init
from simulator.common import SimulatorError, paths
from simulator.common.account import AccountWriter
from simulator.common.configuration import Configuration

_HOST_NAME = "simulated-device"
_NAMESPACES = kernel.CLONE_NEWNS | kernel.CLONE_NEWPID | kernel.CLONE_NEWIPC | kernel.CLONE_NEWUTS


def enter_namespaces() -> None:
    """Leave the host's namespaces.

    Root stays root, so that the supervisor can run its application under another account. An
    ordinary user becomes root of a user namespace that has no other account.
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


def run_init(configuration: Configuration, control_fd: int, doorbell_fd: int) -> None:
    """Run PID 1 of the box. It keeps the device directory open, which is outside the new root."""
    kernel.die_with_parent(signal.SIGKILL)
    directory_fd = os.open(configuration.directory, os.O_RDONLY | os.O_DIRECTORY)
    account_fd, out_fd, err_fd = (
        os.open(name, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o644, dir_fd=directory_fd)
        for name in (paths.ACCOUNT, paths.SUPERVISOR_STDOUT, paths.SUPERVISOR_STDERR))
    root.enter()
    socket.sethostname(_HOST_NAME)
    boot_loader = BootLoader(Path(f"/proc/self/fd/{directory_fd}"), configuration.bad_boots)
    Init(configuration, boot_loader, AccountWriter(account_fd, doorbell_fd), out_fd, err_fd,
         socket.socket(fileno=control_fd)).run()


def hold(init_pid: int, lifeline_fd: int) -> int:
    """Wait for the end of PID 1; kill it when the lifeline is closed."""
    init_fd = os.pidfd_open(init_pid)
    ready, _, _ = select.select([init_fd, lifeline_fd], [], [])
    if init_fd not in ready:
        os.kill(init_pid, signal.SIGKILL)
    return os.waitstatus_to_exitcode(os.waitpid(init_pid, 0)[1])


def main(arguments: list[str]) -> int:
    """Build the box, run PID 1 in it, and hold the box until its end."""
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
        init_pid = os.fork()
        if init_pid == 0:
            os.close(lifeline_fd)
            run_init(configuration, control_fd, doorbell_fd)
            return 0
    except SimulatorError as error:
        print(error, file=sys.stderr)
        return 1
    os.close(control_fd)
    os.close(doorbell_fd)
    return 1 if hold(init_pid, lifeline_fd) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
