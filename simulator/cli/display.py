# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Shows the account on the terminal: a line for each event, and a summary at the end."""

from __future__ import annotations

import os
import time
from collections import Counter
from collections.abc import Sequence
from pathlib import Path
from typing import TextIO

from simulator import BootState, Event
from simulator.cli.follow import Archive
from simulator.common import account, paths

APPLICATION_LOG = "application log"
REPORT_ARCHIVE = "report archive"

_COLOURS = {
    account.BOOT_LOADER: "35",
    account.SUPERVISOR: "33",
    account.SYSTEM_LOG: "36",
    account.TOOL: "34",
    account.WATCHDOG_DEVICE: "32",
    account.CHECK: "31",
    account.SIMULATOR: "1",
    APPLICATION_LOG: "37",
    REPORT_ARCHIVE: "1;34",
}
_ALARM = "31"
_WIDTH = max(map(len, _COLOURS))


class Display:
    """Writes lines with the time and the source in columns, on a terminal in colour."""

    def __init__(self, stream: TextIO) -> None:
        self._stream = stream
        self._colour = stream.isatty() and not os.environ.get("NO_COLOR")

    def show(self, event: Event) -> None:
        """Show an event."""
        alarm = bool(event.get("reset") or event.get("end") or event.get("operation") == "expired")
        mark = f"{event['priority']}: " if event.source == account.SYSTEM_LOG else ""
        self._line(event.wall, event.source, mark + event.text, alarm)

    def show_log(self, lines: list[str], left_out: int) -> None:
        """Show new lines of the application's log."""
        for line in lines:
            self._line(time.time(), APPLICATION_LOG, line)
        if left_out:
            self._line(time.time(), APPLICATION_LOG, f"… at least {left_out} lines not shown")

    def show_archive(self, archive: Archive) -> None:
        """Show an archive that has just been finished, and its contents."""
        now = time.time()
        self._line(now, REPORT_ARCHIVE, f"{archive.path} ({archive.size} bytes)")
        for line in archive.contents:
            self._line(now, REPORT_ARCHIVE, f"  {line}")

    def text(self, text: str) -> None:
        """Show a text that belongs to no event."""
        print(text, file=self._stream, flush=True)

    def _line(self, wall: float, source: str, text: str, alarm: bool = False) -> None:
        clock = time.strftime("%H:%M:%S", time.localtime(wall)) + f".{int(wall * 1000) % 1000:03}"
        name = f"{source:{_WIDTH}}"
        if self._colour:
            name = f"\033[{_ALARM if alarm else _COLOURS[source]}m{name}\033[0m"
        print(f"{clock}  {name}  {_printable(text)}", file=self._stream, flush=True)


def summarise(events: Sequence[Event], state: BootState, directory: Path) -> list[str]:
    """The lines of the summary of a simulation that has ended."""
    boots = sum(1 for event in events if event.get("starts"))
    resets = [event["reset"] for event in events if event.get("reset")]
    restarts = sum(event.source == account.SYSTEM_LOG
                   and event.text.startswith("Restarting process:") for event in events)
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


def _printable(text: str) -> str:
    # An application could otherwise control the terminal by the characters that it prints.
    return "".join(character if character.isprintable() or character == "\t"
                   else character.encode("unicode_escape").decode() for character in text)
