// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "pipesize.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

int pipeSize(qint64 pid, int descriptor)
{
    const QString path = QStringLiteral("/proc/%1/fd/%2").arg(pid).arg(descriptor);
    const int pipe = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (pipe == -1)
        return -1;
    const int size = ::fcntl(pipe, F_GETPIPE_SZ);
    ::close(pipe);
    return size;
}
