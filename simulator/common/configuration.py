# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The configuration of a simulated device, which the outer process hands to the box."""

from __future__ import annotations

import json
import re
from collections.abc import Mapping, Sequence
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import Any

from simulator.common import SimulatorError

TOOLS = ("reboot", "killall", "sfuflags", "fw_setenv")
"""The tools of the board that have a stand-in. `Init` has what each of them does."""

_KINDS = ("normal", "fail", "hang", "absent", "return")
_BEHAVIOUR = re.compile(r"(?P<kind>[a-z]+)(?:=(?P<status>[0-9]{1,3}))?")
_SIZE = re.compile(r"([1-9][0-9]*)([kKmMgG]?)")
_UNITS = {"": 1, "k": 1 << 10, "m": 1 << 20, "g": 1 << 30}


@dataclass(frozen=True)
class Bind:
    """A file or directory of the host that the box shows, read-only, by default at its path."""

    source: str
    target: str = ""

    def __post_init__(self) -> None:
        if not self.target:
            object.__setattr__(self, "target", self.source)


@dataclass(frozen=True)
class Behaviour:
    """What a stand-in tool does when it is called; `status` is its exit status if it fails."""

    kind: str = "normal"
    status: int = 1

    @classmethod
    def parse(cls, tool: str, text: str) -> "Behaviour":
        """The behaviour with a name such as "hang" or "fail=3"; SimulatorError if there is none."""
        if tool not in TOOLS:
            raise SimulatorError(f"there is no tool '{tool}' to stand in for; "
                                 f"there are {', '.join(TOOLS)}")
        match = _BEHAVIOUR.fullmatch(text)
        if match is None or match["kind"] not in _KINDS or (match["kind"] == "return"
                                                            and tool != "reboot"):
            raise SimulatorError(f"'{text}' is no behaviour of {tool}: give normal, fail, fail=N, "
                                 "hang or absent, for reboot also return")
        if match["status"] is None:
            return cls(match["kind"])
        status = int(match["status"])
        if match["kind"] != "fail" or not 1 <= status <= 255:
            raise SimulatorError(f"'{text}' is no behaviour of {tool}: only fail takes a number, "
                                 "the exit status from 1 to 255")
        return cls("fail", status)


@dataclass
class BootState:
    """The boot loader's flags and its environment."""

    fail: int = 0
    boot_count: int = 0
    environment: dict[str, str] = field(
        default_factory=lambda: {"update_url_cache": "https://update.example/latest"})

    @property
    def cleared(self) -> bool:
        """Whether the last boot was confirmed as good, which means that both flags are cleared."""
        return self.fail == 0 and self.boot_count == 0

    @classmethod
    def load(cls, file: Path) -> "BootState":
        """The state in a file; the state of a new board if there is no file."""
        return cls(**json.loads(file.read_bytes())) if file.exists() else cls()

    def save(self, file: Path) -> None:
        """Write what `load` reads; a reader sees either the old state or the new one."""
        new = file.with_suffix(".new")
        new.write_text(json.dumps(asdict(self), indent=2) + "\n", encoding="utf-8")
        new.rename(file)


@dataclass
class Configuration:
    """A simulated device. SimulatorError if the values do not fit together."""

    program: Path
    """The supervisor's executable, which is /supervisor/watchdog in the box."""

    directory: Path
    """The device directory, which keeps everything that is written in the box. A directory that was
    used before is used again with the same files and the same boot flags."""

    arguments: Sequence[str] = ()
    """The supervisor's arguments, with --app and what follows it. An application below a directory
    that the box replaces, such as /tmp, is made visible there with the files beside it."""

    settings: Mapping[str, Any] | None = None
    """Documents for the directory `settings` beside the executable, by file name. Bytes are written
    as they are, None removes a document, and everything else is written as JSON. Without `settings`
    the directory stays as it is; on a new device it is empty."""

    settings_default: Mapping[str, Any] = field(default_factory=dict)
    """The same for `settings-default`: changes to the directory of this name beside `program`."""

    tools: Mapping[str, str] = field(default_factory=dict)
    """Behaviour by tool: "normal", "fail", "fail=N", "hang", "absent"; for reboot also "return"."""

    packaged: bool = False
    """Whether the board tools of the package stand before the board's own, as in an installed
    package; their state is then kept in /home/root/pynx-watchdog."""

    checked: bool = False
    """Whether pynx-watchdog-check looks at the settings and the arguments before the supervisor
    first starts. The account has what it finds; the board boots whatever that is."""

    read_only_root: bool = False
    """Whether /home/root is read-only from the start."""

    watchdog_device: bool = True
    """Whether /dev/watchdog exists."""

    watchdog_library: Path | None = None
    """The library to preload for /dev/watchdog; by default that of the build of `program`."""

    directories: Sequence[str] = ("/tmp/log",)
    """Directories that are made at every boot, as the start-up scripts of a board do."""

    spaces: Mapping[str, str | int] = field(default_factory=dict)
    """Small file systems: the directory of each and its size, such as "1M"."""

    environment: Mapping[str, str] = field(default_factory=dict)
    """Environment variables of every process on the board."""

    bad_boots: int = 3
    """Number of boots without cleared flags before the fallback system is started."""

    boots: int = 0
    """Number of boots after which a further reset ends the simulation; 0 means no limit."""

    binds: Sequence[Bind] = ()
    """Further files and directories of the host that the box shows."""

    launcher: Sequence[str] = ()
    """The command with its options that executes the supervisor, such as prlimit, strace -D or a
    shell. The program and its arguments follow it. It executes the program in its own process."""

    def __post_init__(self) -> None:
        self.program = Path(self.program).resolve()
        self.directory = Path(self.directory).resolve()
        self.spaces = {place: size_in_bytes(size) for place, size in self.spaces.items()}
        for name, behaviour in self.tools.items():
            Behaviour.parse(name, behaviour)
        for place in self.spaces:
            if not place.startswith("/"):
                raise SimulatorError(f"a small file system needs an absolute path, not '{place}'")

    @property
    def application(self) -> str:
        """What follows --app; empty if nothing does."""
        arguments = [*self.arguments, "--app", ""]
        return arguments[arguments.index("--app") + 1]

    def save(self, file: Path) -> None:
        """Write what `load` reads, without the settings, which are in files of their own."""
        entries = asdict(self)
        del entries["settings"], entries["settings_default"]
        file.write_text(json.dumps(entries, indent=2, default=str) + "\n", encoding="utf-8")

    @classmethod
    def load(cls, file: Path) -> "Configuration":
        """What `save` has written."""
        entries = json.loads(file.read_bytes())
        entries["binds"] = [Bind(**bind) for bind in entries["binds"]]
        return cls(**entries)


def size_in_bytes(text: str | int) -> int:
    """A size such as 4096, "64k" or "1M" as a number of bytes."""
    if isinstance(text, int):
        return text
    match = _SIZE.fullmatch(text)
    if match is None:
        raise SimulatorError(f"'{text}' is not a size: give a number of bytes, or of k, M or G")
    return int(match[1]) * _UNITS[match[2].lower()]
