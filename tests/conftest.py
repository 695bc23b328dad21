# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Gives all Python tests the simulated devices, and sorts the tests by their length."""

from __future__ import annotations

import pytest

pytest_plugins = ["simulated_devices"]


def pytest_collection_modifyitems(items: list[pytest.Item]) -> None:
    """Run the longest tests first, so that none of them runs alone at the end."""
    def seconds(item: pytest.Item) -> float:
        marker = item.get_closest_marker("takes")
        return -float(marker.args[0]) if marker else 0

    items.sort(key=seconds)
