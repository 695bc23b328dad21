# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A record that grows while an emulated board runs."""

from __future__ import annotations

from pathlib import Path

from simulator import wait_until


class Recording:
    """A text file to which another process appends."""

    def __init__(self, path: Path) -> None:
        self.path = path

    def text(self) -> str:
        """The text so far, with plain line ends."""
        if not self.path.exists():
            return ""
        return self.path.read_bytes().decode(errors="replace").replace("\r\n", "\n")

    def wait_for(self, text: str, timeout: float = 60.0) -> None:
        """Wait until the record holds a text."""
        wait_until(lambda: text in self.text(), f"{text!r} in {self.path.name}", timeout)
