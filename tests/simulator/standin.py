# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Programs that run in place of the supervisor."""

from pathlib import Path
from typing import Protocol


class Script(Protocol):
    """Makes an executable program from the given lines."""

    def __call__(self, text: str, name: str = "") -> Path: ...


WAIT = "exec sleep infinity"
"""The last line of a script that runs until it is killed."""

WITHOUT_INPUT = ["sh", "-c", 'exec "$@" <&-', "sh"]
"""A launcher for a supervisor without descriptor 0."""

FEEDER = """#!/usr/bin/python3 -ISB
import fcntl, os, struct, time

def open_device():
    global device
    device = os.open("/dev/watchdog", os.O_WRONLY)

def control(number, value=0):
    return struct.unpack("i", fcntl.ioctl(device, number, struct.pack("i", value)))[0]

def set_timeout(seconds):
    return control(0xC0045706, seconds)

def get_timeout():
    return control(0x80045707)

def set_options(options):
    control(0x80045704, options)

def feed():
    control(0x80045705)

"""
"""The beginning of a Python program that uses the watchdog device."""
