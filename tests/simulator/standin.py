# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Scripts that stand in for the supervisor."""

from pathlib import Path
from typing import Protocol


class Script(Protocol):
    """Makes an executable shell script of the lines given."""

    def __call__(self, text: str, name: str = "") -> Path: ...


WAIT = "exec sleep infinity"
"""What a script ends with to be there until it is killed."""

WITHOUT_INPUT = ["sh", "-c", 'exec "$@" <&-', "sh"]
"""A launcher for a supervisor without descriptor 0."""
