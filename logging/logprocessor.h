// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QFile>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

class QProcess;

/**
 * Writes what the application prints, and what the supervisor reports about it, into one log file
 * of limited size with a single rotated generation.
 *
 * The output of both channels goes into the same file as it arrives, in chunks of at most 64 KiB.
 * Each chunk is written at once. A timer flushes the file 200 ms after the first unflushed write.
 * Without a log file (empty name or size limit 0) every chunk is echoed to standard output instead.
 * Write errors are ignored: a full file system loses log text, but the application goes on.
 *
 * Main thread only.
 */
class LogProcessor : public QObject
{
    Q_OBJECT

public:
    /** Milliseconds since the epoch. */
    using Clock = std::function<qint64()>;

    /**
     * Listens to @p process, which must outlive this object and is not owned.
     *
     * @param process the application
     * @param fileName path of the log file; empty for none
     * @param maxSize size limit in bytes; 0 for no log file
     * @param logTime whether a time line precedes new output when the second has changed
     * @param clock the clock of these time lines
     */
    LogProcessor(QProcess *process, const QString &fileName, quint32 maxSize, bool logTime,
                 Clock clock = QDateTime::currentMSecsSinceEpoch);

    /**
     * Opens the log file; an existing file is continued. Call it once, before anything is written.
     * Returns false, after a message on standard error, when the file cannot be opened. Returns
     * true otherwise, also when no log file is configured.
     */
    bool open();

    /**
     * Writes one chunk as if the application had printed it. A time line precedes it where one is
     * due. The chunk that reaches the size limit goes whole into the old file, and the rotation
     * follows.
     */
    void write(const QByteArray &chunk);

    /** Writes @p text as one chunk of UTF-8. */
    void write(const QString &text);

    /** From now on, looks for report markers in what the application prints. */
    void enableReports();

    /**
     * Takes in the unread rest of the application's standard output and flushes the file. Standard
     * error is not read here: its rest comes with its own signal. The next output counts as the
     * start of a line.
     */
    void flushOutput();

signals:
    /**
     * The application asked for a report named @p str that includes @p file, which may be empty.
     * Emitted at most once for each chunk of output, after the chunk was written. The receiver may
     * call flushOutput(), also when flushOutput() itself emitted the signal.
     */
    void reportString(QString file, QString str);

private slots:
    void on_flushTimer_timeout();
    void on_process_readyReadStandardOutput();
    void on_process_readyReadStandardError();

private:
    bool isLogging() const; // false: output is echoed
    void takeIn(const QByteArray &output);
    void processOutput(const QByteArray &chunk);
    void writeTimeStamp();
    void writeData(const QByteArray &bytes);
    void rotate();

    QProcess *m_process;
    QTimer m_flushTimer; // running: the file has unflushed data
    QFile m_file;
    QString m_fileName;
    QString m_rotatedFileName;
    quint32 m_maxSize;
    bool m_logTime;
    Clock m_clock;
    bool m_reportsEnabled = false;
    quint32 m_bytesWritten = 0;   // to the current file; wraps
    qint64 m_lastStampSecond = 0; // since the epoch
    bool m_atLineStart = true;
};
