// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "preparedproc.h"

#include "testfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

PreparedProc::PreparedProc()
{
    if (!m_directory.isValid())
        qFatal("no directory for a prepared process table");
}

QString PreparedProc::root() const
{
    return m_directory.path();
}

QString PreparedProc::path(const QString &relative) const
{
    return m_directory.filePath(relative);
}

void PreparedProc::write(const QString &relative, const QByteArray &content) const
{
    writeFile(path(relative), content);
}

void PreparedProc::remove(const QString &relative) const
{
    const QFileInfo info(path(relative));
    const bool removed =
        info.isDir() ? QDir(info.filePath()).removeRecursively() : QFile::remove(info.filePath());
    if (!removed)
        qFatal("cannot remove a part of a prepared process table");
}

void PreparedProc::setCpuTotal(quint64 total) const
{
    write(QStringLiteral("stat"),
          "cpu  " + QByteArray::number(total)
              + " 0 0 0 0 0 0 0 0 0\ncpu0 1 0 0 0 0 0 0 0 0 0\nintr 7\n");
}

void PreparedProc::setProcess(int pid, const QByteArray &name, const Times &times) const
{
    write(QStringLiteral("%1/stat").arg(pid), statLine(pid, name, times));
}

void PreparedProc::setThread(int pid, int tid, const QByteArray &name, const Times &times) const
{
    write(QStringLiteral("%1/task/%2/stat").arg(pid).arg(tid), statLine(tid, name, times));
}

void PreparedProc::removeProcess(int pid) const
{
    remove(QString::number(pid));
}

QByteArray PreparedProc::statLine(int pid, const QByteArray &name, const Times &times)
{
    return QByteArray::number(pid) + " (" + name + ") S 1 2 3 0 -1 4194560 5 6 7 8 "
        + QByteArray::number(times.utime) + ' ' + QByteArray::number(times.stime) + ' '
        + QByteArray::number(times.cutime) + ' ' + QByteArray::number(times.cstime)
        + " 20 0 1 0 99 1024 10 18446744073709551615 1 2 3 4 5 0 0 0 0 0 0 0 17 1 0 0 0 0 0 6 7 8 9"
          " 10 11 12 0\n";
}
