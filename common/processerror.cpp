// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "common/processerror.h"

#include <syslog.h>

void logProcessError(QProcess::ProcessError error)
{
    // (kept-behaviour.md: misspelt-texts)
    ::syslog(LOG_ERR, "Error occured during process startup, code: %d\n", static_cast<int>(error));
}
