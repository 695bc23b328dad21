# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The places of the box that the board looks after itself."""

from __future__ import annotations

import os
import shutil

from simulator import paths
from simulator.configuration import COMMAND_PATH
from simulator.tools import TOOLS

_VOLATILE = ("/run", "/dev/shm")


def link_commands() -> None:
    """Make a directory of links to all commands of the host that are not stood in for.

    With it in the search path in place of the host's own directories, a tool told to be absent is
    really not found.
    """
    os.mkdir(paths.COMMANDS)
    for directory in COMMAND_PATH.split(":"):
        if not os.path.isdir(directory):
            continue
        for name in os.listdir(directory):
            place = f"{paths.COMMANDS}/{name}"
            if name not in TOOLS and not os.path.lexists(place):
                os.symlink(f"{directory}/{name}", place)


def empty_volatile() -> None:
    """Remove what a board without power forgets, except for what the simulator keeps there.

    /tmp is not among it: on a real board it is gone as well, but the logs and archives in it are
    what an engineer wants to see after a reset.
    """
    for directory in _VOLATILE:
        for entry in os.scandir(directory):
            if entry.path == paths.RUN:
                continue
            if entry.is_dir(follow_symlinks=False):
                shutil.rmtree(entry.path, ignore_errors=True)
            else:
                os.unlink(entry.path)
