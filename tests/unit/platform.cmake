# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
if(NOT PYNX_SDK_ROOT) # what the stand-in promises
    unit_test(tst_pynx_api watchdog_platform test_stopped_wall_clock)
    unit_test(tst_pynxprocesshandler watchdog_platform)
endif()
