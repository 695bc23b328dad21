# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A record that grows while a board runs."""

from __future__ import annotations

from pathlib import Path

from simulator import wait_until


class Recording:
    """A text file that somebody else appends to; positions count its bytes."""

    def __init__(self, path: Path) -> None:
        self.path = path

    @property
    def mark(self) -> int:
        """The position of its end, to look only at what comes later."""
        return self.path.stat().st_size if self.path.exists() else 0

    def text(self, after: int = 0) -> str:
        """What it holds from a position on, with plain line ends."""
        if not self.path.exists():
            return ""
        with self.path.open("rb") as file:
            file.seek(after)
            return file.read().decode(errors="replace").replace("\r\n", "\n")

    def wait_for(self, text: str, timeout: float = 60.0) -> None:
        """Wait until it holds a text."""
        wait_until(lambda: text in self.text(), f"{text!r} in {self.path.name}", timeout)
