// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "inputfile.h"

#include <sys/mman.h>
#include <unistd.h>

InputFile::InputFile() : m_descriptor(::memfd_create("fuzz-input", MFD_CLOEXEC))
{
    if (m_descriptor == -1)
        qFatal("no file in memory");
}

QString InputFile::path() const
{
    return QStringLiteral("/proc/self/fd/%1").arg(m_descriptor);
}

void InputFile::write(const QByteArray &content) const
{
    if (::ftruncate(m_descriptor, 0) != 0
        || ::pwrite(m_descriptor, content.constData(), static_cast<std::size_t>(content.size()), 0)
            != content.size())
        qFatal("cannot write a file in memory");
}
