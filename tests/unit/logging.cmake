# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
unit_test(tst_logprocessor watchdog_logging test_stopped_wall_clock)
unit_test(tst_reportmarkers watchdog_logging)
unit_test(tst_settings watchdog_logging)
target_compile_definitions(tst_settings PRIVATE SETTINGS_PROBE="$<TARGET_FILE:settings-probe>")
add_dependencies(tst_settings settings-probe)
