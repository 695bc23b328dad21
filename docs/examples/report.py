#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Asks the supervisor for a report.

The marker is one write of its own, after all that was printed before, so that the supervisor cannot
get it in two pieces.
"""

import os
import sys


def request_report(name: str) -> None:
    """Ask for a report of this name."""
    sys.stdout.flush()
    os.write(sys.stdout.fileno(), f"==Report=={name}\n".encode())


print("the valve does not close")
request_report("valve")
