# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Starts and ends a box from the outer process, and finds what is left of a box."""

from __future__ import annotations

import fcntl
import os
import select
import socket
import subprocess
import sys
from pathlib import Path
from typing import Any

from simulator.common import SimulatorError, control, paths

_PACKAGE_PARENT = str(Path(__file__).resolve().parent.parent)
_STOPS_WITHIN = 60.0


class Box:
    """A running box. Only this process holds its lifeline, so the box ends with the process."""

    def __init__(self, directory: Path) -> None:
        self._log = directory / paths.SIMULATOR_LOG
        self._lock_fd = _lock(directory)
        ours, boards = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        lifeline_fd, self._lifeline_fd = os.pipe()
        self.doorbell_fd, doorbell_fd = os.pipe()
        os.set_blocking(self.doorbell_fd, False)
        inherited = (boards.fileno(), doorbell_fd, lifeline_fd)
        with self._log.open("wb") as log:
            self._process = subprocess.Popen(
                [sys.executable, "-m", "simulator.box", str(directory), *map(str, inherited)],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, pass_fds=inherited, cwd="/",
                start_new_session=True, env={**os.environ, "PYTHONPATH": _PACKAGE_PARENT,
                                             "PYTHONDONTWRITEBYTECODE": "1"})
        self.pid = self._process.pid
        boards.close()
        os.close(doorbell_fd)
        os.close(lifeline_fd)
        self._client = control.Client(ours)

    def request(self, command: str, descriptors: tuple[int, ...] = (),
                **values: Any) -> control.Answer:
        """Send a request to the board; SimulatorError with its last messages if it has ended."""
        try:
            return self._client.request(command, descriptors, **values)
        except EOFError:
            raise self.failure() from None

    def wait_for_ring(self, seconds: float) -> bool:
        """Wait at most `seconds` for the account to grow; False when the board has ended."""
        if not select.select([self.doorbell_fd], [], [], seconds)[0]:
            return True
        return os.read(self.doorbell_fd, 4096) != b""

    def failure(self) -> SimulatorError:
        """Why the board has ended, as far as its messages say."""
        said = self._log.read_text(encoding="utf-8", errors="replace").strip()
        return SimulatorError(said or "the simulated device has ended without saying why")

    def stop(self) -> None:
        """Switch the board off. When this returns, nothing of the box is left."""
        try:
            self._client.request("stop")
            self._process.wait(_STOPS_WITHIN)
        except (EOFError, SimulatorError, subprocess.TimeoutExpired):
            pass  # the board does not answer; the closed lifeline ends it
        os.close(self._lifeline_fd)
        self._process.wait()
        self._client.close()
        os.close(self.doorbell_fd)
        os.close(self._lock_fd)


def is_in_use(directory: Path) -> bool:
    """Whether a box is running on this device directory."""
    try:
        os.close(_lock(directory))
    except SimulatorError:
        return True
    return False


def _lock(directory: Path) -> int:
    descriptor = os.open(directory, os.O_RDONLY | os.O_DIRECTORY)
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        os.close(descriptor)
        raise SimulatorError(f"another simulated device is running in {directory}; name another "
                             "directory with --device-dir") from None
    return descriptor


class Trace:
    """Remembers a box in order to look for remains of it afterwards.

    It keeps the box's process namespace open, because the kernel could otherwise give the
    namespace's number to another box.
    """

    def __init__(self, box_pid: int, directory: Path) -> None:
        self._directory = directory
        self._namespace_fd = os.open(f"/proc/{box_pid}/ns/pid_for_children", os.O_RDONLY)

    def remains(self) -> list[str]:
        """Processes of the box, and mounts of the host below the device directory."""
        namespace = os.fstat(self._namespace_fd)
        found = [f"process {process.name}" for process in Path("/proc").iterdir()
                 if process.name.isdecimal() and _lives_in(process, namespace)]
        for line in Path("/proc/self/mountinfo").read_text(encoding="utf-8").splitlines():
            mount_point = line.split()[4]
            if Path(mount_point).is_relative_to(self._directory):
                found.append(f"mount {mount_point}")
        return found

    def close(self) -> None:
        """Release the namespace of the box."""
        os.close(self._namespace_fd)


def _lives_in(process: Path, namespace: os.stat_result) -> bool:
    try:
        return os.path.samestat(os.stat(process / "ns" / "pid"), namespace)
    except (FileNotFoundError, ProcessLookupError, PermissionError):
        return False  # it has just ended, or belongs to another user
