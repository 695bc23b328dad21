# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What a simulation came to, in a few lines."""

from __future__ import annotations

from collections import Counter
from collections.abc import Sequence
from pathlib import Path

from simulator import account, paths
from simulator.account import Event
from simulator.boot_loader import BootState

_RESTART = "Restarting process:"


def summarise(events: Sequence[Event], state: BootState, directory: Path) -> list[str]:
    """The summary of a simulation that is over."""
    boots = sum(1 for event in events if event.get("starts"))
    resets = [event["reset"] for event in events if event.get("reset")]
    restarts = sum(1 for event in events
                   if event.source == account.SYSTEM_LOG and event.text.startswith(_RESTART))
    feeds = sum(1 for event in events if event.get("name") == "WDIOC_KEEPALIVE")
    tools = Counter(event["tool"] for event in events if event.source == account.TOOL)
    kept = sorted(path for path in (directory / paths.KEPT_DIRECTORIES["/tmp"]).rglob("*")
                  if path.is_file())
    rows = [
        ("time", _duration(events)),
        ("boots", f"{boots}" + (f", resets by {_counted(Counter(resets))}" if resets else "")),
        ("application", f"restarted {_times(restarts)}"),
        ("watchdog device", f"fed {_times(feeds)}"),
        ("tools called", _counted(tools) or "none"),
        ("boot flags", f"fail={state.fail} boot_count={state.boot_count}, boot environment "
                       + (" ".join(sorted(state.environment)) or "empty")),
        ("account", str(directory / paths.ACCOUNT)),
        ("files in /tmp", f"{len(kept)}" + (":" if kept else "")),
    ]
    return [f"{name:16} {text}" for name, text in rows] + [
        f"{'':16} {path} ({path.stat().st_size} bytes)" for path in kept]


def _duration(events: Sequence[Event]) -> str:
    if not events:
        return "nothing happened"
    return f"{events[-1].monotonic - events[0].monotonic:.1f} s"


def _counted(counter: Counter[str]) -> str:
    return ", ".join(f"{name} ({count})" for name, count in counter.most_common())


def _times(number: int) -> str:
    return "once" if number == 1 else f"{number} times"
