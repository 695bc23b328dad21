# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The driver of the simulated watchdog device: when it is armed and when it resets the board.

It decides only from the times that its callers give. Its model is the watchdog core of Linux.
"""

from __future__ import annotations

import errno
from dataclasses import dataclass

DEFAULT_TIMEOUT = 60
"""Seconds from the opening to the reset while no other time-out is set."""

IOCTLS = {
    0x80045704: "WDIOC_SETOPTIONS",
    0x80045705: "WDIOC_KEEPALIVE",
    0xC0045706: "WDIOC_SETTIMEOUT",
    0x80045707: "WDIOC_GETTIMEOUT",
}

_DISABLE_CARD = 1
_ENABLE_CARD = 2
_MAGIC_CLOSE = b"V"


@dataclass(frozen=True)
class Answer:
    """The result of an ioctl: an error number or 0, and the value that is written back."""

    error: int
    value: int


class Driver:
    """A watchdog device. All times are seconds of one monotonic clock."""

    def __init__(self) -> None:
        self.reset()

    def reset(self) -> None:
        """Start the device anew, because the board is switched on or reset."""
        self.timeout = DEFAULT_TIMEOUT
        self.armed = False
        self.is_open = False
        self.last_feed = 0.0
        self._may_close = False

    @property
    def deadline(self) -> float | None:
        """When the board is reset if the device is not fed before; None while it is not armed."""
        return self.last_feed + self.timeout if self.armed else None

    def open(self, now: float) -> int:
        """Arm the device; returns an error number if it is open already."""
        if self.is_open:
            return errno.EBUSY
        self.is_open = True
        self._may_close = False
        self._arm(now)
        return 0

    def write(self, data: bytes, now: float) -> None:
        """Feed the device; the magic character in `data` allows the next close to disarm it."""
        if data:
            self._may_close = _MAGIC_CLOSE in data
            self.last_feed = now

    def close(self, now: float) -> None:
        """Close the last descriptor: disarm after the magic character, otherwise feed again."""
        self.is_open = False
        if self._may_close:
            self.armed = False
        else:
            self.last_feed = now

    def ioctl(self, request: int, value: int, now: float) -> Answer:
        """Carry out an ioctl; `value` is the number that its argument points to."""
        match IOCTLS.get(request):
            case "WDIOC_KEEPALIVE":
                self.last_feed = now
                return Answer(0, value)
            case "WDIOC_SETTIMEOUT":
                if value < 1:
                    return Answer(errno.EINVAL, value)
                self.timeout = value
                self.last_feed = now
                return Answer(0, self.timeout)
            case "WDIOC_GETTIMEOUT":
                return Answer(0, self.timeout)
            case "WDIOC_SETOPTIONS":
                return self._set_options(value, now)
        return Answer(errno.ENOTTY, value)

    def _set_options(self, value: int, now: float) -> Answer:
        if value & _DISABLE_CARD:
            self.armed = False
        if value & _ENABLE_CARD:
            self._arm(now)
        return Answer(0 if value & (_DISABLE_CARD | _ENABLE_CARD) else errno.EINVAL, value)

    def _arm(self, now: float) -> None:
        self.armed = True
        self.last_feed = now
