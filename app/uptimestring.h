// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

class QString;

/**
 * Returns @p seconds as text for a log line: "1 days 2 hours 0 min 5 sec". Days and hours are left
 * out when they are 0, and minutes when hours and minutes are 0. The units are always plural.
 */
QString uptimeString(int seconds);
