# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Lines for scripts that stand in for the supervisor."""

WAIT = "exec sleep infinity"
"""What a script ends with to be there until it is killed."""
