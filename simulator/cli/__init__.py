# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What ./simulate does once the project is built; see `__main__`."""
