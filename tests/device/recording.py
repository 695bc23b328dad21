# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A record that grows while a board runs."""

from __future__ import annotations

from pathlib import Path

from simulator import wait_until


class Recording:
    """A text file that somebody else appends to."""

    def __init__(self, path: Path) -> None:
        self.path = path

    def text(self) -> str:
        """What it holds, with plain line ends."""
        if not self.path.exists():
            return ""
        return self.path.read_bytes().decode(errors="replace").replace("\r\n", "\n")

    def wait_for(self, text: str, timeout: float = 60.0) -> None:
        """Wait until it holds a text."""
        wait_until(lambda: text in self.text(), f"{text!r} in {self.path.name}", timeout)
