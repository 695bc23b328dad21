# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the inside of the box and the outside share: names, formats, and how they talk."""


class SimulatorError(Exception):
    """The device cannot be built, or a request to it cannot be met; the text says what and why."""
