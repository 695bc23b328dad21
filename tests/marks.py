# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Marks for tests: conditions, and a parameter."""

from __future__ import annotations

import os

import pytest

AS_ROOT = pytest.mark.skipif(os.geteuid() != 0, reason="takes root's rights")

# With --guarded, these tests see what the guard adds, and are left out.
GUARD_IS_STARTED = pytest.mark.unlike_guarded("the program that is started is the guard")
GUARD_TELLS_THE_END = pytest.mark.unlike_guarded("the log has the guard's line about the end")
GUARD_REPORTS_THE_CRASH = pytest.mark.unlike_guarded("the guard asks for a report with the stacks")

DISPATCHERS = pytest.mark.parametrize("environment", [{}, {"QT_NO_GLIB": "1"}],
                                      ids=["glib", "Qt's own loop"])
"""Qt uses GLib's event loop if it is built with it. The Qt of a board usually is not."""
