// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/timeprefix.h"

#include "platform/pynx_api.h"

#include <QDateTime>

QString TimePrefix::now()
{
    // Read before the text is built: should the millisecond end in between, the text is not used
    // again.
    const qint64 ms = QDateTime::currentMSecsSinceEpoch();
    if (ms != m_builtMs) {
        m_text = pynxLocalTimeDateString() + QLatin1Char(' ');
        m_builtMs = ms;
    }
    return m_text;
}
