# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Waiting for what no event announces, such as a file that grows."""

from __future__ import annotations

import time
from collections.abc import Callable
from typing import TypeVar

from simulator.errors import SimulatorError

DEFAULT_TIMEOUT = 60.0
"""Seconds to wait for an event; generous, because a loaded machine is no reason to fail."""

_LOOKS_APART = 0.02

Found = TypeVar("Found")


def wait_until(look: Callable[[], Found | None], what: str,
               timeout: float = DEFAULT_TIMEOUT) -> Found:
    """Look again and again until what is found is true, and return it.

    Raises SimulatorError, saying `what` was waited for and what was seen last, after `timeout`
    seconds.
    """
    deadline = time.monotonic() + timeout
    while not (found := look()):
        if time.monotonic() > deadline:
            raise SimulatorError(f"not within {timeout} s: {what}; seen last: {found!r}")
        time.sleep(_LOOKS_APART)
    return found
