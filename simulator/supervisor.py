# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The supervisor's process as the board sees it: its start, its output, its end."""

from __future__ import annotations

import os
import selectors
import subprocess

from simulator import account, kernel, paths
from simulator.configuration import PROGRAM, Configuration

# What a program on the board needs: files of any owner, other accounts, real-time priority. Left
# out is all that reaches beyond the box (mounts, devices, clock, modules, network set-up, the
# board's own PID 1), because root in the box is root of the machine when the simulator is.
_CAPABILITIES = frozenset({
    0,   # CHOWN
    1,   # DAC_OVERRIDE
    3,   # FOWNER
    4,   # FSETID
    5,   # KILL
    6,   # SETGID
    7,   # SETUID
    10,  # NET_BIND_SERVICE
    13,  # NET_RAW
    14,  # IPC_LOCK
    15,  # IPC_OWNER
    23,  # SYS_NICE
    24,  # SYS_RESOURCE
})

# A sanitizer's run-time library wants to be the first in the list; the device's stands before it.
_SANITIZER = "verify_asan_link_order=0"


class LineSplitter:
    """Cuts a stream of bytes into lines."""

    def __init__(self) -> None:
        self._rest = b""

    def feed(self, data: bytes) -> list[bytes]:
        """The lines that `data` completes, without their newline."""
        *lines, self._rest = (self._rest + data).split(b"\n")
        return lines

    def finish(self) -> list[bytes]:
        """The last line if it has no newline."""
        rest, self._rest = self._rest, b""
        return [rest] if rest else []


class Channel:
    """One output channel: kept byte for byte in a file, and line for line in the account."""

    def __init__(self, name: str, file_fd: int, selector: selectors.BaseSelector,
                 log: account.AccountWriter) -> None:
        self._name = name
        self._file_fd = file_fd
        self._selector = selector
        self._account = log
        self._pipe_fd = -1
        self._lines = LineSplitter()

    def open(self) -> int:
        """Begin with a new pipe; returns the end to write to, which the caller closes."""
        self._pipe_fd, write_fd = os.pipe()
        os.set_blocking(self._pipe_fd, False)
        self._selector.register(self._pipe_fd, selectors.EVENT_READ, self.read)
        return write_fd

    def read(self) -> None:
        """Take in all that has been written so far."""
        while self._pipe_fd >= 0:
            try:
                data = os.read(self._pipe_fd, 1 << 16)
            except BlockingIOError:
                return
            if not data:
                self.close()
                return
            os.write(self._file_fd, data)
            self._record(self._lines.feed(data))

    def close(self) -> None:
        """End the channel; what is still in the pipe must have been read."""
        if self._pipe_fd >= 0:
            self._selector.unregister(self._pipe_fd)
            os.close(self._pipe_fd)
            self._pipe_fd = -1
        self.finish()

    def finish(self) -> None:
        """Record a last line without newline."""
        self._record(self._lines.finish())

    def _record(self, lines: list[bytes]) -> None:
        for line in lines:
            self._account.record(account.SUPERVISOR, line.decode("utf-8", "backslashreplace"),
                                 stream=self._name)


class Supervisor:
    """Starts the supervisor and keeps what it says."""

    def __init__(self, configuration: Configuration, channels: tuple[Channel, Channel],
                 log: account.AccountWriter) -> None:
        self._configuration = configuration
        self._channels = channels
        self._account = log
        self._process: subprocess.Popen[bytes] | None = None

    @property
    def pid(self) -> int:
        """The process' number; 0 while there is none."""
        return self._process.pid if self._process else 0

    def start(self) -> None:
        """Start the program; OSError when it cannot be executed."""
        out, err = (channel.open() for channel in self._channels)
        environment = self._environment()
        command = [PROGRAM, *self._configuration.arguments]
        if self._configuration.launcher:
            # The device's library is for the supervisor alone.
            libraries = environment.pop("LD_PRELOAD", "")
            command = [*self._configuration.launcher, "env", f"LD_PRELOAD={libraries}", *command]
        try:
            self._process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=out, stderr=err, env=environment,
                cwd="/", start_new_session=True)
        finally:
            os.close(out)
            os.close(err)
        self._account.record(account.SIMULATOR, f"supervisor started, process {self.pid}",
                             pid=self.pid)

    def ended(self, status: int) -> None:
        """The process has ended and been waited for."""
        assert self._process is not None
        self._process.returncode = status
        self._process = None
        for channel in self._channels:
            channel.read()
            channel.finish()

    def forget(self) -> None:
        """A reset has killed everything: take in the last words and close the channels."""
        if self._process is not None:
            self.ended(-9)
        for channel in self._channels:
            channel.read()
            channel.close()

    def _environment(self) -> dict[str, str]:
        environment = board_environment(self._configuration)
        if self._configuration.watchdog_device:
            others = environment.get("LD_PRELOAD")
            environment["LD_PRELOAD"] = paths.WATCHDOG_LIBRARY + (f":{others}" if others else "")
        return environment


def board_environment(configuration: Configuration) -> dict[str, str]:
    """The environment of everything that runs on the board."""
    environment = {
        "PATH": f"{paths.TOOLS}:{paths.COMMANDS}", "HOME": "/home/root", "USER": "root",
        "LOGNAME": "root", "SHELL": "/bin/sh", "LANG": "C.UTF-8", **configuration.environment}
    others = environment.get("ASAN_OPTIONS")
    environment["ASAN_OPTIONS"] = _SANITIZER + (f":{others}" if others else "")
    return environment


def limit_capabilities() -> None:
    """Keep what is started from now on from reaching beyond the box."""
    kernel.limit_capabilities(_CAPABILITIES)
