// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

/** A message to the system log. */
struct SyslogMessage
{
    int priority = 0;
    QString text; ///< with its line end, if it has one
};

/** The arguments of an openlog(). */
struct SyslogIdentity
{
    QString ident;
    int option = -1;
    int facility = -1;
};

/** The messages since the last call. A test that links this writes nothing to the machine's log. */
QVector<SyslogMessage> takeSyslogMessages();

/** The arguments of the last openlog(). */
SyslogIdentity syslogIdentity();
