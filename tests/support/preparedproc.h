// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

/** Processor times of one stat line, in clock ticks. */
struct Times
{
    qint64 utime = 0;
    qint64 stime = 0;
    qint64 cutime = 0;
    qint64 cstime = 0;
};

/**
 * A process table that a test writes and changes, in a directory of its own. Paths are relative to
 * that directory. A file's missing directories are made, and a file that is there is replaced.
 */
class PreparedProc
{
public:
    PreparedProc();

    QString root() const;
    QString path(const QString &relative) const;

    void write(const QString &relative, const QByteArray &content) const;
    void remove(const QString &relative) const;

    /** Sets the machine-wide counter, as the first of its ten numbers. */
    void setCpuTotal(quint64 total) const;

    void setProcess(int pid, const QByteArray &name, const Times &times) const;
    void setThread(int pid, int tid, const QByteArray &name, const Times &times) const;
    void removeProcess(int pid) const;

    /** A stat line as a recent kernel writes it, with 52 fields and a line end. */
    static QByteArray statLine(int pid, const QByteArray &name, const Times &times);

private:
    QTemporaryDir m_directory;
};
