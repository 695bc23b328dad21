# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the fixture `board` gives to a test."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Protocol

from simulator.device import Device


class Board(Protocol):
    """Switches on a device whose supervisor runs the sample application with these behaviours."""

    def __call__(self, *behaviours: str, options: Sequence[str] = (), log_size: str = "1M",
                 application: Sequence[str] | None = None, **device_options: Any) -> Device: ...
