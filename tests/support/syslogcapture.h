// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

/** One message that went to the system log. */
struct SyslogMessage
{
    int priority = 0;
    QString text; ///< as written, with its line end
};

/** How the system log was last opened. */
struct SyslogIdentity
{
    QString ident;
    int option = -1;
    int facility = -1;
};

/** The messages since the last call. A test that links this never reaches the machine's log. */
QVector<SyslogMessage> takeSyslogMessages();

/** The arguments of the last openlog(). */
SyslogIdentity syslogIdentity();
