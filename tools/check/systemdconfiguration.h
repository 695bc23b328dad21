// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

/** A file of systemd's and its drop-ins, as systemd reads them. */
class SystemdConfiguration
{
public:
    /**
     * @param root what stands for the root directory
     * @param name the file below "systemd", such as "system.conf"
     * @param dropIns the directories below "systemd" where its drop-ins lie
     */
    SystemdConfiguration(const QString &root, const QString &name, const QStringList &dropIns);

    /** Whether the file is there and not masked. */
    bool exists() const { return m_exists; }

    /** The values assigned to @p key, such as "Service/OOMPolicy", since it was last emptied. */
    QStringList values(const QString &key) const { return m_values.value(key); }

    /** The value that counts, or an empty text. */
    QString value(const QString &key) const;

private:
    void read(const QString &path);

    bool m_exists = false;
    QHash<QString, QStringList> m_values;
};
