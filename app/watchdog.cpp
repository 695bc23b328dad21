// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/watchdog.h"

#include "common/checkedconnect.h"
#include "platform/pynx_api.h"

#include <syslog.h>

Watchdog *theWatchdog = nullptr;

Watchdog::Watchdog(QObject *parent) : QObject(parent)
{
    ::openlog("pynx_watchdog", 0, LOG_USER);
    PynxLogger::instance()->disable();
    using Finished = void (QProcess::*)(int, QProcess::ExitStatus);
    checkedConnect(&m_process, static_cast<Finished>(&QProcess::finished), this,
                   &Watchdog::processFinished);
}

Watchdog::~Watchdog()
{
    // The child's destructor tells of the end that it brings about; the slot would find the members
    // that are destroyed before it gone.
    disconnect(&m_process, nullptr, this, nullptr);
}
