// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "smallfilesystem.h"

#include <QFile>

#include <sched.h>
#include <sys/mount.h>

// The mount is in a namespace of this process, so that nothing of it is left on the machine.
SmallFileSystem::SmallFileSystem(const QString &directory)
    : m_directory(QFile::encodeName(directory)),
      m_mounted(::unshare(CLONE_NEWNS) == 0
                && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                && ::mount("none", m_directory.constData(), "tmpfs", 0, "size=64k,mode=0777") == 0)
{ }

SmallFileSystem::~SmallFileSystem()
{
    if (m_mounted)
        ::umount2(m_directory.constData(), MNT_DETACH);
}
