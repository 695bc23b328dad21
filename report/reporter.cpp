// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "report/reporter.h"

#include "common/errorline.h"
#include "platform/pynx_processhandler.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QRegExp>
#include <QSet>
#include <QTimer>

#include <utility>

namespace {

constexpr qint32 maxReportsPerName = 5;
constexpr qint64 minIntervalMs = 30000;
// The maker's process handler gets these two values with each archive. Their meaning is not
// documented, and the stand-in ignores both (kept-behaviour.md: process-handler).
constexpr int handlerNumber = 1000;
constexpr bool handlerFlag = true;

// Group and others may write, so that the component that collects archives can remove them.
void createUploadDirectory(const QString &path)
{
    if (QDir(path).exists() || !QDir().mkpath(path))
        return;
    QFile::setPermissions(
        path, QFile::permissions(path) | QFileDevice::WriteGroup | QFileDevice::WriteOther);
}

QString fileNamePart(QString name)
{
    return name.replace(QRegExp(QStringLiteral("[^\\w-]")), QStringLiteral("_"));
}

// After a failure the temporary file stays (kept-behaviour.md: temporary-stays).
void finishArchive(const QString &temporaryPath, const QString &finalPath,
                   const PynxProcessHandlerResult &result)
{
    if (result.resultCode == 0)
        QFile::rename(temporaryPath, finalPath);
    else
        writeErrorLine(QStringLiteral("Failed to generate report"));
}

} // namespace

Reporter::Reporter(QStringList files, QString uploadPath, QString uploadFilePrefix, Clock clock,
                   int delayMs)
    : m_files(std::move(files)), m_uploadPath(std::move(uploadPath)),
      m_uploadFilePrefix(std::move(uploadFilePrefix)), m_clock(std::move(clock)), m_delayMs(delayMs)
{
    createUploadDirectory(m_uploadPath);
}

void Reporter::requestReport(const QStringList &extraFiles, const QString &name)
{
    if (!name.isEmpty() && !accept(name))
        return;
    // The timer has no receiver and can fire after this object was destroyed. The guard is null
    // then.
    const QPointer<Reporter> guard(this);
    const auto report = [guard, extraFiles, name] {
        if (guard.isNull())
            return;
        guard->m_files += extraFiles; // never removed (kept-behaviour.md: growing-files)
        guard->createReport(guard->m_files, name);
    };
    QTimer::singleShot(m_delayMs, Qt::CoarseTimer, report); // clazy:exclude=connect-3arg-lambda
}

void Reporter::createReport(const QStringList &files, const QString &name)
{
    const QString base = m_uploadFilePrefix + QLatin1Char('-') + fileNamePart(name)
        + QLatin1Char('-') + QString::number(nextTimeStamp());
    const QString temporaryPath = m_uploadPath + QStringLiteral("/tmp_") + base;
    const QString finalPath = m_uploadPath + QLatin1Char('/') + base + QStringLiteral(".tar.gz");

    // Checked also when there is nothing to pack (kept-behaviour.md: path-is-checked-first).
    if (!QFile::permissions(m_uploadPath).testFlag(QFileDevice::WriteOther)) {
        writeErrorLine(
            QStringLiteral("Upload path doesn't allow non ROOT user to remove the report"));
    }

    QStringList arguments = {QStringLiteral("czhf"), temporaryPath};
    const int ownArguments = arguments.size();
    const QSet<QString> filesOnce = files.toSet();
    for (const QString &file : filesOnce) {
        if (QFile::exists(file))
            arguments.append(file);
    }
    if (arguments.size() == ownArguments)
        return;

    const auto completed = [temporaryPath, finalPath](const PynxProcessHandlerResult &result) {
        finishArchive(temporaryPath, finalPath, result);
    };
    PynxProcessHandler::startAsync(QStringLiteral("tar"), arguments, handlerNumber, completed,
                                   PynxProcessHandler::OutputCallback(), handlerFlag);
}

void Reporter::clearHistory()
{
    m_history.clear();
}

qint64 Reporter::monotonicMs()
{
    QElapsedTimer timer;
    timer.start();
    return timer.msecsSinceReference();
}

bool Reporter::accept(const QString &name)
{
    HistoryRecord &record = m_history[name];
    if (record.count >= maxReportsPerName)
        return false;
    // The time in a new record is 0, so nothing is accepted in the first 30 s of the clock either.
    // A board that has just been restarted may miss its first report
    // (kept-behaviour.md: first-30-seconds).
    const qint64 nowMs = m_clock();
    if (nowMs - record.lastMs < minIntervalMs)
        return false;
    record.count += 1;
    record.lastMs = nowMs;
    return true;
}

// Returns the current time, or one millisecond after the last archive's time if the current time is
// already used. Coarse timers fire together, so two reports can be made within one millisecond, and
// their names can become the same in a file name. An archive's time counts as used only when it is
// less than a second ahead, because the system's clock may be set back.
qint64 Reporter::nextTimeStamp()
{
    constexpr qint64 justNowMs = 1000;
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    const bool taken = nowMs <= m_lastTimeStamp && m_lastTimeStamp - nowMs < justNowMs;
    m_lastTimeStamp = taken ? m_lastTimeStamp + 1 : nowMs;
    return m_lastTimeStamp;
}
