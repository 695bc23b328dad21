// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "syslogcapture.h"

#include <cstdarg>

namespace {

QVector<SyslogMessage> &messages()
{
    static QVector<SyslogMessage> all;
    return all;
}

SyslogIdentity &identity()
{
    static SyslogIdentity last;
    return last;
}

void capture(int priority, const char *format, va_list arguments)
{
    messages().append({priority, QString::vasprintf(format, arguments)});
}

} // namespace

QVector<SyslogMessage> takeSyslogMessages()
{
    QVector<SyslogMessage> taken;
    taken.swap(messages());
    return taken;
}

SyslogIdentity syslogIdentity()
{
    return identity();
}

// These replace functions of the C library in the test's process. A fortified build calls
// __syslog_chk() for syslog().
extern "C" {

void syslog(int priority, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    capture(priority, format, arguments);
    va_end(arguments);
}

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void __syslog_chk(int priority, int /*flag*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    capture(priority, format, arguments);
    va_end(arguments);
}

void openlog(const char *ident, int option, int facility)
{
    identity() = {QString::fromUtf8(ident), option, facility};
}
}
