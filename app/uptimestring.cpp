// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/uptimestring.h"

#include <QString>

QString uptimeString(int seconds)
{
    const int days = seconds / 86400;
    const int totalMinutes = seconds / 60;
    const int minutes = totalMinutes % 60;
    const int hours = (totalMinutes / 60) % 24;
    const int rest = seconds - (days * 86400 + hours * 3600 + minutes * 60);

    QString text; // (kept-behaviour.md: misspelt-texts)
    if (days != 0)
        text += QStringLiteral("%1 days ").arg(days);
    if (hours != 0)
        text += QStringLiteral("%1 hours %2 min ").arg(hours).arg(minutes);
    else if (minutes != 0)
        text += QStringLiteral("%1 min ").arg(minutes);
    return text + QStringLiteral("%1 sec").arg(rest);
}
