# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the board's boot loader keeps and decides.

At every boot it assumes the worst: it sets "fail" and counts the boot. A system that has come up
well clears both flags; one that has not for too many boots in a row is given up for the fallback.
"""

from __future__ import annotations

import json
from dataclasses import asdict, dataclass, field
from pathlib import Path


@dataclass
class BootState:
    """The boot loader's flags and its environment."""

    fail: int = 0
    boot_count: int = 0
    environment: dict[str, str] = field(
        default_factory=lambda: {"update_url_cache": "https://update.example/latest"})

    @property
    def cleared(self) -> bool:
        """Whether the last boot has been confirmed as good: that takes both flags."""
        return self.fail == 0 and self.boot_count == 0

    def to_json(self) -> str:
        """The state as the file in the device directory holds it."""
        return json.dumps(asdict(self), indent=2) + "\n"

    @classmethod
    def from_json(cls, text: str | bytes) -> "BootState":
        """The state that `to_json` has written."""
        return cls(**json.loads(text))

    @classmethod
    def load(cls, path: Path) -> "BootState":
        """The state in a file; a fresh one where there is no file."""
        return cls.from_json(path.read_bytes()) if path.exists() else cls()


@dataclass(frozen=True)
class Decision:
    """What the boot loader does now: start the system (`boots`) or the fallback, and why."""

    boots: bool
    text: str


def decide(state: BootState, bad_boots: int) -> Decision:
    """Decide about the next boot and mark it in `state`."""
    if not state.cleared and state.boot_count + 1 > bad_boots:
        return Decision(False, f"the flags were not cleared in {state.boot_count} boots, more than "
                               f"{bad_boots} are not allowed: the fallback system would start now")
    last = "good" if state.cleared else "not confirmed"
    state.fail = 1
    state.boot_count += 1
    return Decision(True, f"last boot {last}; sets fail=1 boot_count={state.boot_count} and starts "
                          "the system")


def set_flag(state: BootState, name: str, value: int) -> bool:
    """Set a boot flag; False when there is none of that name."""
    if name not in ("fail", "boot_count"):
        return False
    setattr(state, name, value)
    return True
