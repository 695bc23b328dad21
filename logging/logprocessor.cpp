// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "logging/logprocessor.h"

#include "common/checkedconnect.h"
#include "common/errorline.h"
#include "logging/reportmarkers.h"

#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

constexpr int flushIntervalMs = 200;
constexpr qint64 msPerSecond = 1000;
constexpr int maxChunkBytes = 64 * 1024; // as much as a pipe holds by default

void reportCannotOpen(const QString &fileName)
{
    writeErrorLine(QStringLiteral("Can't open file : ") + fileName);
}

// Writes the chunk up to its first NUL byte and does not flush (kept-behaviour.md: echo).
void echo(const QByteArray &chunk)
{
    const auto size = ::strnlen(chunk.constData(), static_cast<std::size_t>(chunk.size()));
    std::fwrite(chunk.constData(), 1, size, stdout);
}

// Returns what readAllStandardOutput() or readAllStandardError() would return, and leaves the read
// channel as it was, as these do. They copy the output. A read of exactly the available bytes takes
// over the buffer of the process instead.
QByteArray takeOutput(QProcess *process, QProcess::ProcessChannel channel)
{
    const QProcess::ProcessChannel current = process->readChannel();
    process->setReadChannel(channel);
    QByteArray chunk = process->read(process->bytesAvailable());
    process->setReadChannel(current);
    return chunk;
}

} // namespace

LogProcessor::LogProcessor(QProcess *process, const QString &fileName, quint32 maxSize,
                           bool logTime, Clock clock)
    : m_process(process), m_fileName(fileName), m_rotatedFileName(fileName + QStringLiteral(".0")),
      m_maxSize(maxSize), m_logTime(logTime), m_clock(std::move(clock))
{
    m_flushTimer.setInterval(flushIntervalMs);
    m_flushTimer.setSingleShot(true);
    checkedConnect(&m_flushTimer, &QTimer::timeout, this, &LogProcessor::on_flushTimer_timeout);
    checkedConnect(m_process, &QProcess::readyReadStandardOutput, this,
                   &LogProcessor::on_process_readyReadStandardOutput);
    checkedConnect(m_process, &QProcess::readyReadStandardError, this,
                   &LogProcessor::on_process_readyReadStandardError);
}

bool LogProcessor::open()
{
    if (m_fileName.isEmpty() || m_maxSize == 0)
        return true;
    m_file.setFileName(m_fileName);
    if (!m_file.open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text)) {
        reportCannotOpen(m_fileName);
        return false;
    }
    m_bytesWritten = static_cast<quint32>(m_file.size());
    return true;
}

void LogProcessor::write(const QByteArray &chunk)
{
    if (m_logTime && isLogging())
        writeTimeStamp();
    // Checked again, because the time line may have caused a rotation that failed.
    if (isLogging())
        writeData(chunk);
    else
        echo(chunk);
    m_atLineStart = chunk.endsWith('\n');
}

void LogProcessor::write(const QString &text)
{
    write(text.toUtf8());
}

void LogProcessor::enableReports()
{
    m_reportsEnabled = true;
}

void LogProcessor::flushOutput()
{
    // The second call finds no output. Its empty chunk can bring a time line after the last output.
    // The rest of standard error comes with its own signal (kept-behaviour.md: flush-output).
    on_process_readyReadStandardOutput();
    on_process_readyReadStandardOutput();
    on_flushTimer_timeout();
    m_flushTimer.stop();
    m_atLineStart = true;
}

void LogProcessor::on_flushTimer_timeout()
{
    // Qt warns on standard error when a file that is not open is flushed.
    if (isLogging())
        m_file.flush();
}

void LogProcessor::on_process_readyReadStandardOutput()
{
    takeIn(takeOutput(m_process, QProcess::StandardOutput));
}

void LogProcessor::on_process_readyReadStandardError()
{
    takeIn(takeOutput(m_process, QProcess::StandardError));
}

bool LogProcessor::isLogging() const
{
    return m_file.handle() != -1;
}

// The output can be larger than a chunk, because a pipe holds 256 KiB. A chunk points into the
// output and is no copy of it, so no NUL byte follows it. Empty output is a chunk, too.
void LogProcessor::takeIn(const QByteArray &output)
{
    int begin = 0;
    do {
        const int size = std::min(maxChunkBytes, output.size() - begin);
        processOutput(QByteArray::fromRawData(output.constData() + begin, size));
        begin += size;
    } while (begin < output.size());
}

void LogProcessor::processOutput(const QByteArray &chunk)
{
    write(chunk);
    if (!m_reportsEnabled)
        return;
    const ReportRequest request = findReportRequest(chunk);
    if (!request.str.isEmpty())
        emit reportString(request.file, request.str);
}

void LogProcessor::writeTimeStamp()
{
    if (!m_atLineStart)
        return;
    const qint64 now = m_clock();
    const qint64 second = now / msPerSecond;
    if (second == m_lastStampSecond)
        return;
    // This time is GMT, and all other times are local (kept-behaviour.md: time-lines).
    const QString time = QDateTime::fromMSecsSinceEpoch(now, Qt::UTC).toString(Qt::TextDate);
    writeData(QStringLiteral("-- Time: %1\n").arg(time).toUtf8());
    m_lastStampSecond = second;
}

void LogProcessor::writeData(const QByteArray &bytes)
{
    // A failed write counts too. On a full file system the rotation then still comes, and frees the
    // space of the older generation (kept-behaviour.md: counted-losses).
    m_bytesWritten += static_cast<quint32>(bytes.size());
    m_file.write(bytes); // a chunk is never split (kept-behaviour.md: whole-chunk)
    if (!m_flushTimer.isActive())
        m_flushTimer.start();
    if (m_bytesWritten >= m_maxSize)
        rotate();
}

void LogProcessor::rotate()
{
    QFile::remove(m_rotatedFileName);
    m_flushTimer.stop();
    m_bytesWritten = 0;
    m_file.close();
    if (!QFile::rename(m_fileName, m_rotatedFileName)) {
        writeErrorLine(QStringLiteral("Can't rename file from:") + m_fileName
                       + QStringLiteral(" to:") + m_rotatedFileName);
        return; // from now on output is echoed (kept-behaviour.md: failed-rotation)
    }
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Text))
        reportCannotOpen(m_fileName);
}
