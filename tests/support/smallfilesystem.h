// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

/**
 * An empty file system of 64 KiB that covers a directory for as long as the object lives. Only this
 * process and its children see it. Skip the test where isMounted() says that mounting is not
 * allowed.
 */
class SmallFileSystem
{
public:
    explicit SmallFileSystem(const QString &directory);
    ~SmallFileSystem();
    SmallFileSystem(const SmallFileSystem &) = delete;
    SmallFileSystem &operator=(const SmallFileSystem &) = delete;

    bool isMounted() const { return m_mounted; }

    /** From here on nothing can be written; ends the test where that cannot be had. */
    void makeReadOnly();

private:
    QByteArray m_directory;
    bool m_mounted;
};
