# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What a simulated device is made of, in the form handed from the outer process to the box."""

from __future__ import annotations

import json
import re
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import Any

from simulator.errors import SimulatorError

PROGRAM_DIRECTORY = "/supervisor"
PROGRAM = PROGRAM_DIRECTORY + "/watchdog"
COMMAND_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
DEFAULT_DIRECTORIES = ("/tmp/log",)

_SIZE = re.compile(r"([1-9][0-9]*)([kKmMgG]?)")
_UNITS = {"": 1, "k": 1 << 10, "m": 1 << 20, "g": 1 << 30}


@dataclass(frozen=True)
class Bind:
    """A file or directory of the host that is to be seen in the box, by default where it lies."""

    source: str
    target: str = ""
    writable: bool = False

    def __post_init__(self) -> None:
        if not self.target:
            object.__setattr__(self, "target", self.source)


@dataclass
class Configuration:
    """One device. All paths are absolute; `directory` lies on the host, `binds` say both sides."""

    directory: str
    arguments: list[str] = field(default_factory=list)
    tools: dict[str, str] = field(default_factory=dict)
    read_only_root: bool = False
    watchdog_device: bool = True
    directories: list[str] = field(default_factory=lambda: list(DEFAULT_DIRECTORIES))
    spaces: dict[str, int] = field(default_factory=dict)
    environment: dict[str, str] = field(default_factory=dict)
    bad_boots: int = 3
    boots: int = 0
    binds: list[Bind] = field(default_factory=list)
    launcher: list[str] = field(default_factory=list)

    def save(self, path: Path) -> None:
        """Write the configuration where `load` finds it."""
        path.write_text(json.dumps(asdict(self), indent=2) + "\n", encoding="utf-8")

    @classmethod
    def load(cls, path: Path) -> "Configuration":
        """Read what `save` wrote."""
        entries: dict[str, Any] = json.loads(path.read_text(encoding="utf-8"))
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
