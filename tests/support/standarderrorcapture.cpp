// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "standarderrorcapture.h"

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

StandardErrorCapture::StandardErrorCapture()
    : m_original(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
{
    if (m_original == -1 || !m_file.open())
        qFatal("no temporary file for standard error");
    std::fflush(stderr);
    // All writers share one offset, because it belongs to the open file.
    ::dup2(m_file.handle(), STDERR_FILENO);
}

StandardErrorCapture::~StandardErrorCapture()
{
    std::fflush(stderr);
    ::dup2(m_original, STDERR_FILENO);
    ::close(m_original);
}

QByteArray StandardErrorCapture::text() const
{
    QFile reader(m_file.fileName());
    return reader.open(QIODevice::ReadOnly) ? reader.readAll() : QByteArray();
}
