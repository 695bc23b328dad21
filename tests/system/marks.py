# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""On what condition, and with what, a test is run."""

from __future__ import annotations

import os

import pytest

AS_ROOT = pytest.mark.skipif(os.geteuid() != 0, reason="takes root's rights")

DISPATCHERS = pytest.mark.parametrize("environment", [{}, {"QT_NO_GLIB": "1"}],
                                      ids=["glib", "Qt's own loop"])
"""Qt turns the event loop with glib's where it has it; a device's Qt usually has not."""
