// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/threadpriority.h"

#include "common/errorline.h"

#include <QString>

#include <sched.h>

namespace {

constexpr pid_t callingThread = 0;

} // namespace

void raiseThreadPriority()
{
    sched_param parameters = {};
    if (::sched_getparam(callingThread, &parameters) < 0) {
        writeErrorLine(QStringLiteral("Scheduler getparam failed..."));
        return;
    }
    parameters.sched_priority = ::sched_get_priority_max(SCHED_RR);
    if (::sched_setscheduler(callingThread, SCHED_RR, &parameters) != 0)
        writeErrorLine(QStringLiteral("Cannot set priority"));
}
