// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "health/sfuflagclearer.h"

#include "common/checkedconnect.h"
#include "common/errorline.h"
#include "common/processerror.h"
#include "common/toolprocess.h"

#include <QFile>
#include <QStringList>

#include <utility>

SfuFlagClearer::SfuFlagClearer(int intervalMs, QString markerPath, int toolTimeoutMs)
    : m_markerPath(std::move(markerPath)), m_toolTimeoutMs(toolTimeoutMs)
{
    m_clearTimer.setTimerType(Qt::PreciseTimer); // a coarse timer may be 5 % early
    m_clearTimer.setInterval(intervalMs);
    m_clearTimer.setSingleShot(true);
    checkedConnect(&m_clearTimer, &QTimer::timeout, this, &SfuFlagClearer::on_clearTimer_timeout);
}

void SfuFlagClearer::start()
{
    if (!m_cleared)
        m_clearTimer.start();
}

void SfuFlagClearer::stop()
{
    m_clearTimer.stop();
}

void SfuFlagClearer::on_clearTimer_timeout()
{
    if (!isFileSystemWritable())
        rebootFromReadOnlySystem();
    else if (clearFlag(QStringLiteral("fail")) && clearFlag(QStringLiteral("boot_count")))
        m_cleared = true;
}

// Anything that keeps the marker from being made or removed counts as read-only, also a missing
// directory. A board in such a state is not worth going on with (kept-behaviour.md: strict-marker).
bool SfuFlagClearer::isFileSystemWritable() const
{
    QFile marker(m_markerPath);
    return marker.open(QIODevice::ReadWrite) && marker.remove();
}

bool SfuFlagClearer::clearFlag(const QString &flag) const
{
    const QStringList arguments =
        QStringLiteral("-f %1 -v 0").arg(flag).split(QLatin1Char(' '), QString::SkipEmptyParts);
    ToolProcess tool;
    tool.discardOutput();
    tool.start(QStringLiteral("sfuflags"), arguments, QIODevice::ReadWrite);
    if (tool.waitForFinished(m_toolTimeoutMs) && tool.exitCode() == 0)
        return true;
    logProcessError(tool.error());
    return false;
}

void SfuFlagClearer::rebootFromReadOnlySystem() const
{
    writeErrorLine(QStringLiteral("Detected filesystem in read-only mode. Rebooting"));
    // A name without a value deletes the variable. A tool that exceeds its time limit is not killed
    // before the reboot was tried, because a half-written boot environment is worse than an old
    // one.
    ToolProcess environmentTool;
    environmentTool.discardOutput();
    environmentTool.start(QStringLiteral("fw_setenv"), {QStringLiteral("update_url_cache")},
                          QIODevice::ReadWrite);
    environmentTool.waitForFinished(m_toolTimeoutMs);
    ToolProcess::run(QStringLiteral("reboot"), {QStringLiteral("-f")});
}
