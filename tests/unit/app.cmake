# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
unit_test(tst_allocator watchdog_app)
unit_test(tst_uptimestring watchdog_app)
unit_test(tst_commandline watchdog_app)
unit_test(tst_pynxprocess watchdog_app)
unit_test(tst_terminationsignals watchdog_app)
unit_test(tst_watchdog watchdog_app test_syslog_capture)
unit_test(tst_watchdoghandlers watchdog_app test_syslog_capture)
