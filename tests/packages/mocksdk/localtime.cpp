// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "platform/pynx_api.h"

QString pynxLocalTimeDateString()
{
    return QStringLiteral("the time by the SDK");
}
