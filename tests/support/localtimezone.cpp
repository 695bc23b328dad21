// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "localtimezone.h"

#include <ctime>

LocalTimeZone::LocalTimeZone(const QByteArray &zone) : m_before(qgetenv("TZ"))
{
    qputenv("TZ", zone);
    ::tzset();
}

LocalTimeZone::~LocalTimeZone()
{
    if (m_before.isNull())
        qunsetenv("TZ");
    else
        qputenv("TZ", m_before);
    ::tzset();
}
