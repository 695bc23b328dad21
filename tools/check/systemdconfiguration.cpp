// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/systemdconfiguration.h"

#include "tools/check/boardparts.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>

SystemdConfiguration::SystemdConfiguration(const QString &root, const QString &name,
                                           const QStringList &dropIns)
{
    static const QStringList places = {
        // What stands further down counts more.
        QStringLiteral("/lib/systemd/"),           QStringLiteral("/usr/lib/systemd/"),
        QStringLiteral("/usr/local/lib/systemd/"), QStringLiteral("/run/systemd/"),
        QStringLiteral("/etc/systemd/"),
    };
    QString file;
    QMap<QString, QString> added; // the path by the name, in the order of the names
    for (const QString &place : places) {
        if (QFileInfo::exists(root + place + name))
            file = root + place + name;
        for (const QString &directory : dropIns) {
            const QDir dropInDir(root + place + directory);
            const QStringList found = dropInDir.entryList({QStringLiteral("*.conf")}, QDir::Files);
            for (const QString &dropIn : found)
                added.insert(dropIn, dropInDir.filePath(dropIn));
        }
    }
    m_exists = QFileInfo(file).isFile(); // a link to /dev/null is a mask
    read(file);
    const QStringList paths = added.values();
    for (const QString &path : paths)
        read(path);
}

QString SystemdConfiguration::value(const QString &key) const
{
    const QStringList all = values(key);
    return all.isEmpty() ? QString() : all.last();
}

void SystemdConfiguration::read(const QString &path)
{
    QString text = readText(path);
    text.replace(QStringLiteral("\\\n"), QStringLiteral(" "));
    QString section;
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &untrimmed : lines) {
        const QString line = untrimmed.trimmed();
        const int equals = line.indexOf(QLatin1Char('='));
        if (line.startsWith(QLatin1Char('#')) || line.startsWith(QLatin1Char(';')))
            continue;
        if (line.startsWith(QLatin1Char('['))) {
            section = line.mid(1, line.size() - 2);
        } else if (equals > 0) {
            QStringList &values =
                m_values[section + QLatin1Char('/') + line.left(equals).trimmed()];
            const QString value = line.mid(equals + 1).trimmed();
            if (value.isEmpty())
                values.clear();
            else
                values.append(value);
        }
    }
}
