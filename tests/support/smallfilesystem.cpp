// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "smallfilesystem.h"

#include <QFile>

#include <sched.h>
#include <sys/mount.h>

namespace {

bool mountAt(const QByteArray &directory, unsigned long flags)
{
    return ::mount("none", directory.constData(), "tmpfs", flags, "size=64k,mode=0777") == 0;
}

} // namespace

// The mount is in a namespace of this process, so that nothing of it is left on the machine.
SmallFileSystem::SmallFileSystem(const QString &directory)
    : m_directory(QFile::encodeName(directory)),
      m_mounted(::unshare(CLONE_NEWNS) == 0
                && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                && mountAt(m_directory, 0))
{ }

SmallFileSystem::~SmallFileSystem()
{
    if (m_mounted)
        ::umount2(m_directory.constData(), MNT_DETACH);
}

void SmallFileSystem::makeReadOnly()
{
    if (!mountAt(m_directory, MS_REMOUNT | MS_RDONLY))
        qFatal("cannot make a file system read-only");
}
