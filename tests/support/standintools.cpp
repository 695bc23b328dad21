// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "standintools.h"

#include <QFile>

StandInTools::StandInTools() : m_path(qgetenv("PATH"))
{
    if (!m_directory.isValid())
        qFatal("no directory for stand-in tools");
    qputenv("PATH", QFile::encodeName(m_directory.path()));
}

StandInTools::~StandInTools()
{
    qputenv("PATH", m_path);
}

void StandInTools::add(const QString &name, const QString &script)
{
    QFile tool(m_directory.filePath(name));
    if (!tool.open(QIODevice::WriteOnly | QIODevice::Truncate))
        qFatal("cannot write a stand-in tool");
    tool.write(QStringLiteral("#!/bin/sh\n"
                              "line=%1\n"
                              "for argument; do line=\"$line|$argument\"; done\n"
                              "printf '%s\\n' \"$line\" >> '%2'\n"
                              "%3\n")
                   .arg(name, recordPath(), script)
                   .toUtf8());
    tool.close();
    tool.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

void StandInTools::remove(const QString &name)
{
    QFile::remove(m_directory.filePath(name));
}

QStringList StandInTools::calls() const
{
    QFile record(recordPath());
    if (!record.open(QIODevice::ReadOnly))
        return QStringList();
    return QString::fromUtf8(record.readAll()).split(QLatin1Char('\n'), QString::SkipEmptyParts);
}

void StandInTools::clear()
{
    QFile::remove(recordPath());
}

QString StandInTools::recordPath() const
{
    return m_directory.filePath(QStringLiteral(".calls"));
}
