# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Makes the package of the reader known to its tests, and starts their browser."""

from __future__ import annotations

import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

from browser import Browser

sys.path.insert(0, str(Path(__file__).parents[2] / "tools/evidence"))


@pytest.fixture(name="started", scope="module")
def fixture_started() -> Iterator[Browser]:
    """A browser, which is started only once, because that takes a second."""
    browser = Browser()
    yield browser
    browser.driver.quit()


@pytest.fixture(name="chromium")
def fixture_chromium(started: Browser) -> Browser:
    """A browser of usual size and colours."""
    started.resize(1300)
    started.colours("light")
    return started
