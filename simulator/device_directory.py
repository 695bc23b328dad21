# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The device directory as the board reaches it: by descriptor, for it lies outside the box."""

from __future__ import annotations

import os

from simulator import paths
from simulator.boot_loader import BootState


class DeviceDirectory:
    """The board's memory that outlives a reset."""

    def __init__(self, path: str) -> None:
        self._descriptor = os.open(path, os.O_RDONLY | os.O_DIRECTORY)

    def append_to(self, name: str) -> int:
        """Open a file for appending; the descriptor is the caller's."""
        return os.open(name, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o644, dir_fd=self._descriptor)

    def load_boot_state(self) -> BootState:
        """What the boot loader has kept; a fresh state on a new board."""
        try:
            descriptor = os.open(paths.BOOT_LOADER, os.O_RDONLY, dir_fd=self._descriptor)
        except FileNotFoundError:
            return BootState()
        with open(descriptor, "rb") as file:
            return BootState.from_json(file.read())

    def save_boot_state(self, state: BootState) -> None:
        """Keep the boot loader's state; a reader outside sees the old one or the new one, whole."""
        temporary = paths.BOOT_LOADER + ".new"
        descriptor = os.open(temporary, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644,
                             dir_fd=self._descriptor)
        with open(descriptor, "w", encoding="utf-8") as file:
            file.write(state.to_json())
        os.rename(temporary, paths.BOOT_LOADER, src_dir_fd=self._descriptor,
                  dst_dir_fd=self._descriptor)
