# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The application's log as it lies on the device."""

from __future__ import annotations

from simulator.device import Device

LOG = "/tmp/log/application.log"
OLD_LOG = LOG + ".0"


def content(running: Device, path: str = LOG) -> bytes:
    """What the file holds now; nothing where it is not there."""
    try:
        return running.host_path(path).read_bytes()
    except FileNotFoundError:
        return b""


def complaints(running: Device) -> bytes:
    """What the supervisor said on standard error, but for what it says without root's rights."""
    return running.stderr.replace(b"Cannot set priority\n", b"")
