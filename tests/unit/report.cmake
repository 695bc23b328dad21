# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
unit_test(tst_reporter watchdog_report)
# Brings its own PynxProcessHandler, which the linker takes in place of the platform's.
unit_test(tst_reportercommand watchdog_report)
