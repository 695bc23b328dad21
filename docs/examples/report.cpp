// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Asks the supervisor for a report. The marker is one write of its own, after all that was printed
// before, so that the supervisor cannot get it in two pieces.
#include <QByteArray>
#include <QFile>
#include <QString>

#include <cstdio>

#include <unistd.h>

static bool requestReport(const QString &name)
{
    const QByteArray line = "==Report==" + name.toUtf8() + '\n';
    QFile output;
    return std::fflush(stdout) == 0
        && output.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered)
        && output.write(line) == line.size();
}

int main()
{
    std::puts("the valve does not close");
    return requestReport(QStringLiteral("valve")) ? 0 : 1;
}
