// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "pipesize.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

namespace {

int withPipe(qint64 pid, int descriptor, int command, int argument)
{
    const QString path = QStringLiteral("/proc/%1/fd/%2").arg(pid).arg(descriptor);
    const int pipe = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (pipe == -1)
        return -1;
    const int result = ::fcntl(pipe, command, argument);
    ::close(pipe);
    return result;
}

} // namespace

int pipeSize(qint64 pid, int descriptor)
{
    return withPipe(pid, descriptor, F_GETPIPE_SZ, 0);
}

bool setPipeSize(qint64 pid, int descriptor, int bytes)
{
    return withPipe(pid, descriptor, F_SETPIPE_SZ, bytes) != -1;
}
