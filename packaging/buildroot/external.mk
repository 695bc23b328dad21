# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT

include $(sort $(wildcard $(BR2_EXTERNAL_PYNX_WATCHDOG_PATH)/package/*/*.mk))
