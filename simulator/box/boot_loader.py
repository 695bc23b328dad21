# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The board's boot loader: its state, its decisions, and the tools that change its state."""

from __future__ import annotations

import re
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path

from simulator.box.tools import Outcome, bad_usage
from simulator.common import paths
from simulator.common.configuration import BootState


@dataclass(frozen=True)
class Decision:
    """Whether the boot loader starts the system (`boots`) or the fallback system, and why."""

    boots: bool
    text: str


class BootLoader:
    """Keeps its flags and its environment in the device directory, where they outlive a reset.

    At every boot it sets the flag "fail" and adds one to "boot_count". A system that has come up
    well clears both flags. After too many boots in a row without cleared flags the next
    boot starts the fallback system.
    """

    def __init__(self, directory: Path, bad_boots: int) -> None:
        self._file = directory / paths.BOOT_LOADER
        self._bad_boots = bad_boots

    @contextmanager
    def state(self) -> Iterator[BootState]:
        """The state; changes to it are saved at the end of the context."""
        state = BootState.load(self._file)
        yield state
        state.save(self._file)

    def decide(self) -> Decision:
        """Decide about the next boot and set the flags for it."""
        with self.state() as state:
            if not state.cleared and state.boot_count + 1 > self._bad_boots:
                return Decision(
                    False, f"the flags were not cleared in {state.boot_count} boots, more than "
                    f"{self._bad_boots} are not allowed: the fallback system would start now")
            last = "good" if state.cleared else "not confirmed"
            state.fail = 1
            state.boot_count += 1
            return Decision(True, f"last boot {last}; sets fail=1 boot_count={state.boot_count} "
                                  "and starts the system")

    def sfuflags(self, arguments: list[str]) -> Outcome:
        """sfuflags -f NAME -v VALUE: set a boot flag."""
        match arguments:
            case ["-f", ("fail" | "boot_count") as name, "-v", value] if re.fullmatch(
                    "[0-9]{1,9}", value):
                with self.state() as state:
                    setattr(state, name, int(value))
                return Outcome(0, "done")
        return bad_usage("sfuflags", " ".join(arguments))

    def fw_setenv(self, arguments: list[str]) -> Outcome:
        """fw_setenv NAME [VALUE…]: set a variable of the boot environment, or delete it."""
        if not arguments or arguments[0].startswith("-"):
            return bad_usage("fw_setenv", " ".join(arguments))
        name, *words = arguments
        with self.state() as state:
            if words:
                state.environment[name] = " ".join(words)
                return Outcome(0, "set")
            found = state.environment.pop(name, None)
            return Outcome(0, "deleted" if found is not None else "was not set")
