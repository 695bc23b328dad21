# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The simulated device: what the supervisor can see of a board, in a box on a PC."""

from simulator.common import SimulatorError
from simulator.common.account import Event
from simulator.common.configuration import Bind, BootState
from simulator.device import Device
from simulator.history import wait_until

__all__ = ["Bind", "BootState", "Device", "Event", "SimulatorError", "wait_until"]
