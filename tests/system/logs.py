# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The application's log on the device, and the supervisor's errors."""

from __future__ import annotations

from simulator.device import Device

LOG = "/tmp/log/application.log"
OLD_LOG = LOG + ".0"


def content(running: Device, path: str = LOG) -> bytes:
    """The content of the file; empty if it does not exist."""
    try:
        return running.host_path(path).read_bytes()
    except FileNotFoundError:
        return b""


def complaints(running: Device) -> bytes:
    """The supervisor's standard error, without the message that it prints if it is not root."""
    return running.stderr.replace(b"Cannot set priority\n", b"")
