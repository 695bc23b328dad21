# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A device in a box: the board, as far as the supervisor can see it, on a PC."""

from simulator.account import Event
from simulator.boot_loader import BootState
from simulator.configuration import Bind
from simulator.device import Device
from simulator.errors import SimulatorError
from simulator.waiting import wait_until

__all__ = ["Bind", "BootState", "Device", "Event", "SimulatorError", "wait_until"]
