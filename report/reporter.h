// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

/**
 * Packs diagnostic files into archives in the upload directory. Another component of the device
 * collects the archives and removes them.
 *
 * Requests are limited by name. An accepted request waits 5 s, so that files about the event can
 * still be written. It then starts `tar` without waiting for it. The archive is called "tmp_…"
 * until `tar` has succeeded, and is then renamed. If `tar` fails, the file keeps that name.
 *
 * Main thread only.
 */
class Reporter : public QObject
{
    Q_OBJECT

public:
    /** Milliseconds of a monotonic clock. */
    using Clock = std::function<qint64()>;

    /**
     * Creates the upload directory and its parents where they are missing, and lets group and
     * others write to it. An existing directory is left as it is. A directory that cannot be
     * created is noticed when the first report is made.
     *
     * @param files paths that every report includes
     * @param uploadPath directory that receives the archives
     * @param uploadFilePrefix the beginning of every archive's name
     * @param clock the clock of the rate limit
     * @param delayMs time from a request to its archive, in milliseconds
     */
    Reporter(QStringList files, QString uploadPath, QString uploadFilePrefix,
             Clock clock = monotonicMs, int delayMs = 5000);

    /**
     * Asks for a report called @p name that includes @p extraFiles. Every later report includes
     * these files too.
     *
     * The request is dropped without a message in three cases: the name was accepted five times
     * since clearHistory(), it was accepted less than 30 s ago, or the clock is below 30 s. An
     * empty name is never limited. Each accepted request makes its own archive, unless this object
     * is destroyed before the delay has ended.
     */
    void requestReport(const QStringList &extraFiles, const QString &name);

    /**
     * Starts to pack those of @p files that exist, each once and in no particular order, and
     * returns. No archive is made when none of them exists. Standard error tells of a failed
     * archive, and of an upload directory from which only root could remove an archive.
     */
    void createReport(const QStringList &files, const QString &name);

    /** Forgets the accepted requests, so that every name may be reported five more times. */
    void clearHistory();

    /** The production clock. It counts from the start of the system. */
    static qint64 monotonicMs();

private:
    struct HistoryRecord
    {
        qint64 lastMs = 0;
        qint32 count = 0;
    };

    bool accept(const QString &name);
    qint64 nextTimeStamp();

    QStringList m_files; // never gets shorter
    QString m_uploadPath;
    QString m_uploadFilePrefix;
    QHash<QString, HistoryRecord> m_history;
    Clock m_clock;
    int m_delayMs;
    qint64 m_lastTimeStamp = 0; // in the last archive's name; milliseconds since the epoch
};
