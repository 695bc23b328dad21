# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""python3 -m simulator: what ./simulate runs after the build."""

import sys

from simulator.cli import main

sys.exit(main(sys.argv[1:]))
