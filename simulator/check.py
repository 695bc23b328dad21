# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Checks a command line of ./simulate before the build: status 2 if wrong, 3 if it was --help."""

import sys

from simulator import options

_HELP_SHOWN = 3

try:
    options.parse(sys.argv[1:])
except SystemExit as end:
    sys.exit(end.code or _HELP_SHOWN)
