# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What can go wrong with the simulated device, in words for the person at the keyboard."""


class SimulatorError(Exception):
    """The device cannot be built, or a request to it cannot be met; the text says what and why."""
