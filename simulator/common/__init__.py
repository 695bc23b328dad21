# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the code inside the box and the code outside share: names, formats and requests."""


class SimulatorError(Exception):
    """The device cannot be built or a request to it has failed; the text says what and why."""
