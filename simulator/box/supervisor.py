# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The supervisor's process as the board sees it: its start, its output, its end."""

from __future__ import annotations

import os
import selectors
import subprocess

from simulator.common import account, paths
from simulator.common.configuration import Configuration

# AddressSanitizer checks that its library is the first one, but the device's library comes before
# it.
_SANITIZER = "verify_asan_link_order=0"


_CHECK_LIMIT = 10  # seconds


def check(configuration: Configuration) -> list[str]:
    """What pynx-watchdog-check says of the settings and of the supervisor's arguments."""
    try:
        said = subprocess.run(
            [paths.CHECK, "--", *configuration.arguments], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, cwd="/", check=False,
            env=board_environment(configuration), timeout=_CHECK_LIMIT)
    except (OSError, subprocess.TimeoutExpired) as error:
        return [str(error)]
    lines = said.stdout.decode("utf-8", "backslashreplace").splitlines()
    return lines + ([] if said.returncode in (0, 1) else [f"ended with {said.returncode}"])


class Channel:
    """An output channel, whose bytes are kept in a file and whose lines go into the account."""

    def __init__(self, name: str, file_fd: int, selector: selectors.BaseSelector,
                 log: account.AccountWriter) -> None:
        self._name = name
        self._file_fd = file_fd
        self._selector = selector
        self._account = log
        self._pipe_fd = -1
        self._rest = b""

    def open(self) -> int:
        """Open a new pipe; returns its writing end, which the caller closes."""
        self._pipe_fd, write_fd = os.pipe()
        os.set_blocking(self._pipe_fd, False)
        self._selector.register(self._pipe_fd, selectors.EVENT_READ, self.read)
        return write_fd

    def read(self) -> None:
        """Read everything that has been written so far."""
        while self._pipe_fd >= 0:
            try:
                data = os.read(self._pipe_fd, 1 << 16)
            except BlockingIOError:
                return
            if not data:
                self.close()
                return
            os.write(self._file_fd, data)
            *lines, self._rest = (self._rest + data).split(b"\n")
            self._record(lines)

    def close(self) -> None:
        """Close the pipe after everything in it has been read."""
        if self._pipe_fd >= 0:
            self._selector.unregister(self._pipe_fd)
            os.close(self._pipe_fd)
            self._pipe_fd = -1
        self.finish()

    def finish(self) -> None:
        """Record a last line that has no newline."""
        if self._rest:
            self._record([self._rest])
            self._rest = b""

    def _record(self, lines: list[bytes]) -> None:
        for line in lines:
            self._account.record(account.SUPERVISOR, line.decode("utf-8", "backslashreplace"),
                                 stream=self._name)


class Supervisor:
    """Starts the supervisor and keeps its output."""

    def __init__(self, configuration: Configuration, channels: tuple[Channel, Channel],
                 log: account.AccountWriter) -> None:
        self._configuration = configuration
        self._channels = channels
        self._account = log
        self._process: subprocess.Popen[bytes] | None = None

    @property
    def pid(self) -> int:
        """The process id of the supervisor; 0 while it is not running."""
        return self._process.pid if self._process else 0

    def start(self) -> None:
        """Start the supervisor; raises OSError when it cannot be executed."""
        out, err = (channel.open() for channel in self._channels)
        environment = self._environment()
        command = [paths.PROGRAM, *self._configuration.arguments]
        if self._configuration.launcher:
            # Only the supervisor may load the device's library.
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
        """Note that the process has ended and was waited for."""
        assert self._process is not None
        self._process.returncode = status
        self._process = None
        for channel in self._channels:
            channel.read()
            channel.finish()

    def forget(self) -> None:
        """After a reset has killed all processes, read the rest of the output and close it."""
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
    """The environment of every process on the board."""
    environment = {
        "PATH": f"{paths.TOOLS}:{paths.COMMANDS}", "HOME": paths.HOME, "USER": "root",
        "LOGNAME": "root", "SHELL": "/bin/sh", "LANG": "C.UTF-8", **configuration.environment}
    if configuration.packaged:
        environment["PATH"] = f"{paths.PROGRAM_TOOLS}:{environment['PATH']}"
        environment.setdefault("STATE_DIRECTORY", paths.STATE)
    others = environment.get("ASAN_OPTIONS")
    environment["ASAN_OPTIONS"] = _SANITIZER + (f":{others}" if others else "")
    return environment
