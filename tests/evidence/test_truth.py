# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What is told is what has happened, in some random scenarios; truth.py tries out more of them."""

from __future__ import annotations

from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import truth

SEEDS = range(1, 7)
SECONDS = 25


def test_what_is_told_is_what_has_happened(build_directory: Path, tmp_path: Path) -> None:
    with ThreadPoolExecutor(len(SEEDS)) as threads:
        compared = list(threads.map(
            lambda seed: truth.try_out(seed, build_directory, tmp_path / str(seed), SECONDS),
            SEEDS))
    assert sum((each.missed + each.wrong for each in compared), []) == []
    assert all(sum(each.left[kind] for each in compared)
               for kind in ("start", "end", "alarm", "request", "archive", "message"))
