# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
unit_test(tst_hwwatchdog watchdog_health)
unit_test(tst_memoryusage watchdog_health)
unit_test(tst_sfuflagclearer watchdog_health test_syslog_capture test_wait_capture)
unit_test(tst_systemloadlogger watchdog_health test_wait_capture)
