# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
unit_test(tst_checkedconnect watchdog_common)
unit_test(tst_errorline watchdog_common)
