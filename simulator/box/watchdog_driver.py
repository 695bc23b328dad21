# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The driver of the stand-in watchdog device: when it is armed and when it resets the board.

Pure decisions on the clock readings it is given; modelled on what Linux' watchdog core does.
"""

from __future__ import annotations

import errno
from dataclasses import dataclass

DEFAULT_TIMEOUT = 60
"""Seconds from the opening to the reset when nobody sets another time-out."""

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
    """What an ioctl comes back with: an error number or 0, and the value written back."""

    error: int
    value: int


class Driver:
    """One device. Times are seconds of one monotonic clock."""

    def __init__(self) -> None:
        self.reset()

    def reset(self) -> None:
        """The board is switched on or reset: the device starts anew."""
        self.timeout = DEFAULT_TIMEOUT
        self.armed = False
        self.is_open = False
        self.last_feed = 0.0
        self._may_close = False

    @property
    def deadline(self) -> float | None:
        """When the board is reset unless the device is fed before; None while it is not armed."""
        return self.last_feed + self.timeout if self.armed else None

    def open(self, now: float) -> int:
        """Arm the device; an error number when it is open already."""
        if self.is_open:
            return errno.EBUSY
        self.is_open = True
        self._may_close = False
        self._arm(now)
        return 0

    def write(self, data: bytes, now: float) -> None:
        """Any write feeds; one that holds the magic character allows the next close to disarm."""
        if data:
            self._may_close = _MAGIC_CLOSE in data
            self.last_feed = now

    def close(self, now: float) -> None:
        """The last descriptor is closed: disarms after the magic character, else feeds again."""
        self.is_open = False
        if self._may_close:
            self.armed = False
        else:
            self.last_feed = now

    def ioctl(self, request: int, value: int, now: float) -> Answer:
        """Carry out one ioctl; `value` is what its argument points to."""
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
