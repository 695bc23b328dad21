# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Marks for tests: a condition, and a parameter."""

from __future__ import annotations

import os

import pytest

AS_ROOT = pytest.mark.skipif(os.geteuid() != 0, reason="takes root's rights")

DISPATCHERS = pytest.mark.parametrize("environment", [{}, {"QT_NO_GLIB": "1"}],
                                      ids=["glib", "Qt's own loop"])
"""Qt uses GLib's event loop if it is built with it. The Qt of a board usually is not."""
