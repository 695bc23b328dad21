# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""All Python tests run on simulated devices."""

pytest_plugins = ["simulator.pytest_plugin"]
