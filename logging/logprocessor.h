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
 * Turns what the application prints, and what the supervisor says about it, into one size-limited
 * log file with a single rotated generation.
 *
 * Output is taken in as it arrives, both channels into the same file, in chunks of at most 64 KiB,
 * and written at once; a timer flushes the file 200 ms after the first unflushed write. Without a
 * log file (empty name or size limit 0) every chunk is echoed to standard output instead. Write
 * errors are ignored: a full file system loses log text, never the application.
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
     * @param logTime put a time line in front of new output when the second has changed
     * @param clock the time of these lines
     */
    LogProcessor(QProcess *process, const QString &fileName, quint32 maxSize, bool logTime,
                 Clock clock = QDateTime::currentMSecsSinceEpoch);

    /**
     * Opens the log file, continuing an existing one; to be called once, before anything is
     * written. Returns false, after a message on standard error, when it cannot be opened; true
     * otherwise, also when no log file is configured.
     */
    bool open();

    /**
     * Writes one chunk as if the application had printed it: a time line in front where one is due,
     * and rotation after it when the limit is reached. The chunk that reaches the limit still goes
     * whole into the old file.
     */
    void write(const QByteArray &chunk);

    /** Writes @p text as UTF-8; see above. */
    void write(const QString &text);

    /** From now on, looks for report markers in what the application prints. */
    void enableReports();

    /**
     * Takes in what the application has left unread on its standard output and flushes the file.
     * Standard error is left undrained here: its rest arrives with its own signal. What comes next
     * counts as the start of a line.
     */
    void flushOutput();

signals:
    /**
     * The application asked for a report named @p str that includes @p file, which may be empty.
     * Emitted at most once per chunk of output, after the chunk was written. The receiver may call
     * flushOutput(), also while that function emits it.
     */
    void reportString(QString file, QString str);

private slots:
    void on_flushTimer_timeout();
    void on_process_readyReadStandardOutput();
    void on_process_readyReadStandardError();

private:
    bool isLogging() const; // to the file, rather than echoing
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
    quint32 m_bytesWritten = 0;   // to the active file; wraps
    qint64 m_lastStampSecond = 0; // since the epoch
    bool m_atLineStart = true;
};
