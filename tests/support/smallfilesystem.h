// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

/**
 * An empty file system of 64 KiB that covers a directory as long as the object lives. Only this
 * process and its children see it. Where mounting is not allowed, isMounted() is false and the test
 * is skipped.
 */
class SmallFileSystem
{
public:
    explicit SmallFileSystem(const QString &directory);
    ~SmallFileSystem();
    SmallFileSystem(const SmallFileSystem &) = delete;
    SmallFileSystem &operator=(const SmallFileSystem &) = delete;

    bool isMounted() const { return m_mounted; }

private:
    QByteArray m_directory;
    bool m_mounted;
};
