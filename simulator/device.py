# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The simulated device, as tests and tools of the project use it."""

from __future__ import annotations

import io
import os
import select
import shlex
import signal
import tempfile
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from simulator import preparation
from simulator.common import SimulatorError, paths
from simulator.common.account import BOOT_LOADER, SIMULATOR, Event
from simulator.common.configuration import BootState, Configuration
from simulator.common.control import Answer, Process
from simulator.history import DEFAULT_TIMEOUT, History, Text, wait_until
from simulator.boxes import Box, Trace


@dataclass(frozen=True)
class Completed:
    """A command that has ended in the box: its exit status and its output.

    The status is minus the number of the signal that ended it.
    """

    status: int
    stdout: bytes
    stderr: bytes


class Device:
    """A simulated device with the supervisor on it, from power-on (`start`) to power-off (`stop`).

    The parameters are those of `Configuration`, where each is explained.
    """

    def __init__(self, program: Path | str, directory: Path | str, arguments: Sequence[str] = (),
                 **parameters: Any) -> None:
        self._configuration = Configuration(Path(program), Path(directory), arguments, **parameters)
        self._prepared = self._configuration
        self.directory = self._configuration.directory
        self._box: Box | None = None
        self.trace: Trace | None = None
        """Finds processes and mounts of the device, also after its end. The caller closes it."""
        self._history = History(self.directory / paths.ACCOUNT, self._wait_for_news)

    # -- power ---------------------------------------------------------------------------------

    def __enter__(self) -> "Device":
        self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    def start(self) -> None:
        """Build the box and boot the board; raises SimulatorError with the reason if that fails."""
        if self._box is not None:
            raise SimulatorError("the device is running already")
        self._prepared = preparation.prepare(self._configuration)
        self._history.begin()
        box = Box(self.directory)
        try:
            box.request("ping")
        except SimulatorError:
            box.stop()
            preparation.remove_mount_points(self._prepared)
            raise
        self.trace = Trace(box.pid, self.directory)
        self._box = box

    def stop(self) -> None:
        """Switch the board off. Nothing of it is left running or mounted. May be called again."""
        if self._box is None:
            return
        box, self._box = self._box, None
        box.stop()
        preparation.remove_mount_points(self._prepared)

    def reset(self) -> None:
        """Reset the board like a reset button: all processes die at once, then the board boots."""
        self._request("reset")

    @property
    def is_running(self) -> bool:
        """Whether the board is switched on."""
        return self._box is not None

    # -- what happened -------------------------------------------------------------------------

    def events(self, source: str | None = None, text: Text = None,
               **fields: Any) -> list[Event]:
        """The events so far, all or those that match in the way `wait_for` explains."""
        return self._history.events(source, text, fields)

    def wait_for(self, source: str | None, text: Text = None, *,
                 count: int = 1, after: Event | None = None, timeout: float = DEFAULT_TIMEOUT,
                 **fields: Any) -> Event:
        """Wait for the count-th matching event of `source` that is later than `after`; return it.

        A str matches if the event's text contains it, a compiled pattern if it is found in the
        text. Every further keyword must equal the event's field of this name. Raises SimulatorError
        with the end of the account after `timeout` seconds, and at once when the simulation has
        ended without such an event.
        """
        return self._history.wait_for(source, text, fields, count, after, timeout)

    def wait_for_news(self, seconds: float) -> list[Event]:
        """The events since the last call; waits at most `seconds` for the first."""
        news = self._history.read()
        if not news:
            self._wait_for_news(seconds)
            news = self._history.read()
        return news

    def wait_supervisor_exit(self, *, after: Event | None = None,
                             timeout: float = DEFAULT_TIMEOUT) -> int:
        """Wait for the supervisor to end by itself; its exit status, or minus the signal number."""
        event = self.wait_for(SIMULATOR, "supervisor ended by itself", after=after, timeout=timeout)
        return int(event["status"])

    def wait_end(self, timeout: float = DEFAULT_TIMEOUT) -> Event:
        """Wait until the simulation ends by itself; return the event, whose field "end" says why.

        It is "supervisor" (with the field "status"), "fallback", or "boots" after the last allowed
        boot.
        """
        return self.wait_for(SIMULATOR, "the simulation ends", timeout=timeout)

    @property
    def boots(self) -> int:
        """How often the board has booted."""
        return len(self.events(BOOT_LOADER, starts=True))

    @property
    def stdout(self) -> bytes:
        """Everything that the supervisor has written to standard output, over all boots."""
        return (self.directory / paths.SUPERVISOR_STDOUT).read_bytes()

    @property
    def stderr(self) -> bytes:
        """Everything that the supervisor has written to standard error, over all boots."""
        return (self.directory / paths.SUPERVISOR_STDERR).read_bytes()

    @property
    def boot_state(self) -> BootState:
        """The boot loader's flags and environment as they are now."""
        return BootState.load(self.directory / paths.BOOT_LOADER)

    def tail(self, lines: int = 60) -> str:
        """The end of the account, for messages."""
        return self._history.tail(lines)

    # -- files ---------------------------------------------------------------------------------

    def host_path(self, path: str) -> Path:
        """The host's path of a file of the box below /tmp, /home/root or /supervisor."""
        for place, name in paths.KEPT_DIRECTORIES.items():
            if path == place or path.startswith(place + "/"):
                return self.directory / name / path[len(place):].lstrip("/")
        raise SimulatorError(f"{path} of the box does not lie in the device directory")

    def open(self, path: str) -> io.BufferedReader:
        """Open any file of the box for reading; raises OSError like open()."""
        return open(self._request("open", path=path).descriptors[0], "rb")

    def read(self, path: str) -> bytes:
        """The content of a file of the box."""
        with self.open(path) as file:
            return file.read()

    # -- processes -----------------------------------------------------------------------------

    def processes(self) -> list[Process]:
        """The processes of the box except its PID 1."""
        return self._processes()[0]

    def supervisor(self) -> Process:
        """The supervisor's process; raises SimulatorError if it is not running."""
        listed, pid = self._processes()
        for process in listed:
            if process.pid == pid:
                return process
        raise SimulatorError("the supervisor is not running")

    def application(self, *, unlike: Process | None = None,
                    timeout: float = DEFAULT_TIMEOUT) -> Process:
        """Wait for the application's process, other than `unlike`, and return it.

        It is the child of the supervisor whose command line has what follows --app.
        """
        def look() -> Process | None:
            listed, pid = self._processes()
            return next((process for process in listed
                         if pid and process.ppid == pid and process.state != "Z"
                         and self._configuration.application in process.command_line[:3]
                         and (unlike is None or process.pid != unlike.pid)), None)

        found = wait_until(look, "an application's process", timeout)
        assert found is not None
        return found

    def signal(self, target: int | str, number: int) -> None:
        """Send a signal to "supervisor", "application", a process id or all processes of a name."""
        if isinstance(target, int):
            pids = [target]
        elif target == "supervisor":
            pids = [self.supervisor().pid]
        elif target == "application":
            pids = [self.application().pid]
        else:
            pids = [process.pid for process in self.processes() if process.comm == target]
            if not pids:
                raise SimulatorError(f"no process is called {target}")
        for pid in pids:
            self._request("signal", pid=pid, number=int(number))

    def run(self, command: Sequence[str], *, stdin: bytes = b"",
            timeout: float = DEFAULT_TIMEOUT) -> Completed:
        """Run a command in the box, as root and with the supervisor's environment."""
        report_fd, boards_report_fd = os.pipe()
        try:
            with tempfile.TemporaryFile() as given, tempfile.TemporaryFile() as out, \
                    tempfile.TemporaryFile() as err:
                given.write(stdin)
                given.seek(0)
                try:
                    answer = self._request(
                        "run", (given.fileno(), out.fileno(), err.fileno(), boards_report_fd),
                        arguments=list(command))
                finally:
                    os.close(boards_report_fd)
                if not select.select([report_fd], [], [], timeout)[0]:
                    self._request("signal", pid=answer.values["pid"], number=int(signal.SIGKILL))
                    os.read(report_fd, 16)  # waits until the killed command has ended
                    raise SimulatorError(f"{shlex.join(command)} did not end within {timeout} s")
                status = int(os.read(report_fd, 16))
                out.seek(0)
                err.seek(0)
                return Completed(status, out.read(), err.read())
        finally:
            os.close(report_fd)

    # -- changes while it runs -----------------------------------------------------------------

    def set_tool(self, name: str, behaviour: str) -> None:
        """Change what a stand-in tool does at its next calls."""
        self._request("set_tool", name=name, behaviour=behaviour)

    def set_read_only_root(self, read_only: bool) -> None:
        """Make /home/root read-only, like a file system that fails, or writable again."""
        self._request("set_read_only_root", read_only=read_only)

    # -- the inside ----------------------------------------------------------------------------

    def _request(self, command: str, descriptors: tuple[int, ...] = (),
                 **values: Any) -> Answer:
        if self._box is None:
            raise SimulatorError("the device is switched off")
        return self._box.request(command, descriptors, **values)

    def _processes(self) -> tuple[list[Process], int]:
        values = self._request("processes").values
        return [Process(**entry) for entry in values["processes"]], values["supervisor"]

    def _wait_for_news(self, seconds: float) -> bool:
        if self._box is None:
            return False
        if not self._box.wait_for_ring(seconds):
            raise self._box.failure()
        return True
