# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
unit_test(tst_statline watchdog_load)
unit_test(tst_processreaders watchdog_load test_scheduling_capture)
unit_test(tst_processload watchdog_load)
unit_test(tst_threadpriority watchdog_load test_scheduling_capture)
unit_test(tst_systemloadstat test_load_machine test_scheduling_capture)
unit_test(tst_loadalarms test_load_machine test_scheduling_capture test_stopped_wall_clock)
unit_test(tst_loadabsence test_load_machine test_scheduling_capture)
unit_test(tst_newqthread watchdog_load)
unit_test(tst_loadfigures watchdog_load test_scheduling_capture)
unit_test(tst_loadstress watchdog_load test_scheduling_capture)
# What crosses threads is also run under ThreadSanitizer; the target builds no more than that.
set_tests_properties(tst_newqthread tst_loadstress PROPERTIES LABELS threads)
add_custom_target(thread-tests DEPENDS tst_newqthread tst_loadstress)
target_compile_definitions(tst_loadfigures PRIVATE
    PROCESS_TIMES="${CMAKE_CURRENT_SOURCE_DIR}/processtimes.py")
