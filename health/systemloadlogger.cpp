// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "health/systemloadlogger.h"

#include "common/checkedconnect.h"
#include "common/errorline.h"
#include "common/toolprocess.h"

#include <QFile>
#include <QPair>
#include <QTextStream>
#include <QTimer>
#include <QVector>

#include <utility>

#include <unistd.h>

namespace {

constexpr int snapshotsKept = 3;

using Command = QPair<QString, QStringList>; // program, arguments

const QVector<Command> &snapshotCommands()
{
    static const QVector<Command> commands = {
        {QStringLiteral("sh"),
         {QStringLiteral("-c"), QStringLiteral("COLUMNS=115 top -b -n1 | head -n 50")}},
        {QStringLiteral("free"), {}},
    };
    return commands;
}

QByteArray outputOf(const Command &command, int timeoutMs)
{
    ToolProcess process;
    process.setStandardErrorFile(QProcess::nullDevice()); // otherwise Qt keeps it in memory
    process.start(command.first, command.second, QIODevice::ReadWrite);
    process.waitForFinished(timeoutMs);
    return process.readAll(); // also of a command that hangs: its output may tell why
}

} // namespace

// The timer has no parent and is not deleted with the logger, because both live until the process
// ends.
SystemLoadLogger::SystemLoadLogger(QString filePath, QObject *parent, int commandTimeoutMs)
    : QObject(parent), m_filePath(std::move(filePath)), m_timer(new QTimer(nullptr)),
      m_commandTimeoutMs(commandTimeoutMs)
{
    checkedConnect(m_timer, &QTimer::timeout, this, &SystemLoadLogger::on_timer_timeout);
}

void SystemLoadLogger::start(int msec)
{
    m_timer->start(msec);
}

void SystemLoadLogger::stop()
{
    m_timer->stop();
}

QString SystemLoadLogger::copyLoadFile()
{
    if (!QFile::exists(m_filePath))
        return QString();
    QString copy = m_filePath + QStringLiteral(".load");
    QFile::copy(m_filePath, copy); // never replaces an older one (kept-behaviour.md: stale-copy)
    return copy;
}

void SystemLoadLogger::on_timer_timeout()
{
    // constData() is read as a C string, so a snapshot ends at its first NUL byte.
    m_snapshots.append(QString::fromUtf8(takeSnapshot().constData()));
    if (m_snapshots.size() > snapshotsKept)
        m_snapshots.removeFirst();
    writeSnapshots();
}

QByteArray SystemLoadLogger::takeSnapshot() const
{
    QByteArray snapshot;
    for (const Command &command : snapshotCommands())
        snapshot += outputOf(command, m_commandTimeoutMs) + '\n';
    return snapshot;
}

void SystemLoadLogger::writeSnapshots() const
{
    QFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) {
        writeErrorLine(QStringLiteral("Cannot open file : %1 : err : %2 ")
                           .arg(m_filePath, file.errorString()));
    }
    // There is no return above. A file that is not open drops what is written to it
    // (kept-behaviour.md: unopened-snapshots).
    QTextStream stream(&file);
    stream.setCodec("UTF-8"); // the default follows the locale, on a device often "C"
    for (const QString &snapshot : m_snapshots)
        stream << snapshot;
    // The stream keeps up to 16 KiB of its text back until the file closes, so fsync() makes the
    // truncation durable and not the text. If the stream were flushed first, the main loop would
    // wait in every round until the text is on the storage (kept-behaviour.md: early-sync).
    file.flush();
    ::fsync(file.handle());
    file.close();
}
