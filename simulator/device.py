# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The simulated device as a test or a tool of the project holds it in its hand."""

from __future__ import annotations

import io
import json
import re
import shutil
import signal as signals
import time
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any

from simulator import control, paths
from simulator.account import SIMULATOR, SUPERVISOR, AccountReader, Event
from simulator.boot_loader import BootState
from simulator.configuration import (
    DEFAULT_DIRECTORIES, PROGRAM, PROGRAM_DIRECTORY, Bind, Configuration, size_in_bytes)
from simulator.errors import SimulatorError
from simulator.launcher import Box
from simulator.processes import Process

DEFAULT_TIMEOUT = 60.0
"""Seconds to wait for an event; generous, because a loaded machine is no reason to fail."""

_POLL_INTERVAL = 0.02
_TAIL = 60


class Device:
    """One board with the supervisor on it, from power-on (`start`) to power-off (`stop`).

    program
        The supervisor's executable; seen in the box as /supervisor/watchdog.
    directory
        The device directory: everything the board writes stays there, also after `stop`. A
        directory that was used before goes on where it was left: same files, same boot flags.
    arguments
        The supervisor's arguments, including --app and what follows it. An application below a
        directory that the box replaces (such as /tmp) is made visible there with its neighbours.
    settings, settings_default
        Documents for the two directories beside the executable, by file name: bytes are written as
        they are, None means that there is no such document, everything else is written as JSON.
        `settings_default` starts from the directory of that name beside `program`.
    tools
        Behaviour by tool: "normal", "fail", "fail=N", "hang", "absent", for reboot also "return".
    watchdog_device, watchdog_maximum, watchdog_library
        Whether /dev/watchdog exists, the longest time-out in seconds that its driver grants, and
        the library to preload (by default the one of the build that `program` comes from).
    directories
        Directories made at every boot, as a board's start-up scripts do.
    spaces
        Directory → size ("1M"): small file systems of their own.
    bad_boots, boots
        Boots without cleared flags before the fallback system; boots after which a further reset
        ends the simulation (0: no limit).
    boot_state
        What the boot loader finds at the first boot; by default what the directory holds, or a
        fresh one.
    stdin
        "null" for /dev/null, "closed" for a supervisor started without descriptor 0.
    """

    def __init__(self, program: Path | str, directory: Path | str, arguments: Sequence[str] = (), *,
                 settings: Mapping[str, Any] | None = None,
                 settings_default: Mapping[str, Any] | None = None,
                 tools: Mapping[str, str] | None = None,
                 read_only_root: bool = False,
                 watchdog_device: bool = True,
                 watchdog_maximum: int = 3600,
                 watchdog_library: Path | str | None = None,
                 directories: Sequence[str] = DEFAULT_DIRECTORIES,
                 spaces: Mapping[str, str | int] | None = None,
                 environment: Mapping[str, str] | None = None,
                 bad_boots: int = 3,
                 boots: int = 0,
                 boot_state: BootState | None = None,
                 binds: Sequence[Bind] = (),
                 stdin: str = "null",
                 working_directory: str = "/") -> None:
        self.directory = Path(directory).resolve()
        self.program = Path(program).resolve()
        self._settings = dict(settings or {})
        self._settings_default = dict(settings_default or {})
        self._boot_state = boot_state
        self._configuration = Configuration(
            directory=str(self.directory), arguments=list(arguments), tools=dict(tools or {}),
            read_only_root=read_only_root, watchdog_device=watchdog_device,
            watchdog_library=str(watchdog_library or ""), watchdog_maximum=watchdog_maximum,
            directories=list(directories),
            spaces={place: size_in_bytes(size) for place, size in (spaces or {}).items()},
            environment=dict(environment or {}), bad_boots=bad_boots, boots=boots,
            binds=list(binds), stdin=stdin, working_directory=working_directory)
        self._box: Box | None = None
        self._account = AccountReader(self.directory / paths.ACCOUNT)
        self._events: list[Event] = []

    # -- power ---------------------------------------------------------------------------------

    def __enter__(self) -> "Device":
        self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    def start(self) -> None:
        """Build the box and boot the board; SimulatorError with the reason if that fails."""
        raise NotImplementedError

    def stop(self) -> None:
        """Switch the board off; nothing of it is left running or mounted. May be called again."""
        raise NotImplementedError

    def reset(self, reason: str = "reset button") -> None:
        """Reset the board as a pressed button does: everything dies at once, then it boots."""
        raise NotImplementedError

    # -- what happened -------------------------------------------------------------------------

    def events(self, source: str | None = None, text: str | re.Pattern[str] | None = None,
               **fields: Any) -> list[Event]:
        """The events so far, all or those that match; see `wait_for` for what matches."""
        raise NotImplementedError

    def wait_for(self, source: str, text: str | re.Pattern[str] | None = None, *, count: int = 1,
                 after: Event | None = None, timeout: float = DEFAULT_TIMEOUT,
                 **fields: Any) -> Event:
        """The count-th event of `source` that matches, later in the account than `after`.

        A str matches an event whose text contains it, a compiled pattern one in whose text it is
        found; every further keyword must equal the event's field of that name. Raises
        SimulatorError with the end of the account when `timeout` seconds pass, and at once when
        the simulation has ended without such an event.
        """
        raise NotImplementedError

    def wait_supervisor_exit(self, *, after: Event | None = None,
                             timeout: float = DEFAULT_TIMEOUT) -> int:
        """The supervisor's exit status when it ends by itself; minus the number for a signal."""
        raise NotImplementedError

    def wait_end(self, timeout: float = DEFAULT_TIMEOUT) -> Event:
        """The event with which the simulation ends by itself; its field "end" says why.

        "supervisor" (with "status"), "fallback", or "boots" when the last allowed boot is over.
        """
        raise NotImplementedError

    @property
    def boots(self) -> int:
        """How often the board has booted."""
        raise NotImplementedError

    @property
    def stdout(self) -> bytes:
        """Everything that the supervisor has written to standard output, over all boots."""
        raise NotImplementedError

    @property
    def stderr(self) -> bytes:
        """Everything that the supervisor has written to standard error, over all boots."""
        raise NotImplementedError

    @property
    def boot_state(self) -> BootState:
        """The boot loader's flags and environment as they are now."""
        raise NotImplementedError

    # -- files ---------------------------------------------------------------------------------

    def host_path(self, path: str) -> Path:
        """Where on the host `path` of the box lies: below /tmp, /home/root or /supervisor."""
        raise NotImplementedError

    def open(self, path: str) -> io.BufferedReader:
        """Open a file of the box for reading, wherever in the box it lies; OSError as open()."""
        raise NotImplementedError

    def read(self, path: str) -> bytes:
        """The content of a file of the box."""
        with self.open(path) as file:
            return file.read()

    # -- processes -----------------------------------------------------------------------------

    def processes(self) -> list[Process]:
        """The processes of the box, without its PID 1."""
        raise NotImplementedError

    def supervisor(self) -> Process:
        """The supervisor's process; SimulatorError when it is not running."""
        raise NotImplementedError

    def application(self, timeout: float = DEFAULT_TIMEOUT) -> Process:
        """The application's process: waits until the supervisor has one (again)."""
        raise NotImplementedError

    def signal(self, target: int | str, number: int) -> None:
        """Send a signal to "supervisor", "application", a number, or all processes of a name."""
        raise NotImplementedError

    def run(self, command: Sequence[str], *, input: bytes = b"",  # pylint: disable=redefined-builtin
            timeout: float = DEFAULT_TIMEOUT) -> control.Completed:
        """Run a command in the box, as root and with the supervisor's environment."""
        raise NotImplementedError

    # -- changes while it runs -----------------------------------------------------------------

    def set_tool(self, name: str, behaviour: str) -> None:
        """Change what a stand-in tool does from its next call on."""
        raise NotImplementedError

    def set_read_only_root(self, read_only: bool) -> None:
        """Make /home/root read-only as a failing file system would, or writable again."""
        raise NotImplementedError
