# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Waiting for what the account does not tell: the content of a log, the end of a process."""

from __future__ import annotations

import time
from collections.abc import Callable
from typing import TypeVar

T = TypeVar("T")

BOUND = 60.0
"""Seconds; generous, because a loaded machine is no reason to fail."""


def wait_until(condition: Callable[[], T], what: str, timeout: float = BOUND) -> T:
    """Calls `condition` until what it returns is true, and returns that."""
    deadline = time.monotonic() + timeout
    while True:
        result = condition()
        if result:
            return result
        assert time.monotonic() < deadline, f"waited {timeout} s in vain: {what}"
        time.sleep(0.02)
