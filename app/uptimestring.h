// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

class QString;

/**
 * @p seconds as text for a log line: "1 days 2 hours 0 min 5 sec". Days and minutes are left out
 * when they are 0, hours together with their minutes; units are never made singular.
 */
QString uptimeString(int seconds);
