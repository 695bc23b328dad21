# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The lines that the sample application floods with, and a check that log files hold their end."""

from __future__ import annotations

import pathlib
from collections.abc import Iterable

LIMIT = 8 * 1024 * 1024  # bytes in the current log file
LINE_BYTES = 100


def is_end_of_output(size: int, files: Iterable[pathlib.Path]) -> bool:
    """Whether the files hold an unbroken end of `size` bytes of output, at least LIMIT of them."""
    kept = b"".join(path.read_bytes() for path in files if path.exists())
    first = max(0, size - len(kept)) // LINE_BYTES
    lines = (f"out {number} ".ljust(LINE_BYTES - 1, ".") for number in
             range(first, size // LINE_BYTES))
    printed = "".join(f"{line}\n" for line in lines).encode()
    return len(kept) >= min(LIMIT, size) and printed.endswith(kept)
