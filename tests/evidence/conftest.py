# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Makes the package of the reader known to its tests."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[2] / "tools/evidence"))
