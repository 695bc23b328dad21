# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The boot loader's environment as U-Boot stores it: a checksum, then NAME=VALUE texts."""

from __future__ import annotations

import zlib
from collections.abc import Mapping

SIZE = 0x4000
"""Bytes of the environment that the boot loader and the running system share."""

BAD_BOOTS = 3
"""Number of boots without cleared flags before the fallback system is started."""

FRESH = {"fail": "0", "boot_count": "0", "bad_boots": str(BAD_BOOTS),
         "update_url_cache": "https://update.example/latest"}
"""The environment of a new board."""

_CHECKSUM_BYTES = 4


def pack(variables: Mapping[str, str], size: int = SIZE) -> bytes:
    """The environment as it is stored in `size` bytes."""
    texts = b"".join(f"{name}={value}\0".encode() for name, value in variables.items()) + b"\0"
    data = texts.ljust(size - _CHECKSUM_BYTES, b"\0")
    return zlib.crc32(data).to_bytes(_CHECKSUM_BYTES, "little") + data


def unpack(stored: bytes) -> dict[str, str]:
    """The variables of a stored environment; ValueError when its checksum is wrong."""
    checksum, data = stored[:_CHECKSUM_BYTES], stored[_CHECKSUM_BYTES:]
    if int.from_bytes(checksum, "little") != zlib.crc32(data):
        raise ValueError("the boot environment's checksum is wrong")
    texts = data[:data.index(b"\0\0")].split(b"\0") if data[:1] != b"\0" else []
    return dict(text.decode().split("=", 1) for text in texts)
