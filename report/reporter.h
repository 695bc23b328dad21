// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

/**
 * Packs diagnostic files into archives in the upload directory, from which another component of the
 * device collects and removes them.
 *
 * A request is rate-limited by its name, waits 5 s, so that what belongs to the event can still be
 * written, and then starts `tar` without waiting for it. An archive gets its final name by a rename
 * when `tar` has succeeded; until then, and for good when `tar` fails, its file is called "tmp_…".
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
     * Creates the upload directory where it is missing, with its parents, and lets group and others
     * write to it; one that exists is left as it is. A directory that cannot be created is noticed
     * when the first report is made.
     *
     * @param files paths that every report includes
     * @param uploadPath directory that receives the archives
     * @param uploadFilePrefix how every archive's name begins
     * @param clock what the rate limit goes by
     * @param delayMs from a request to its archive, in milliseconds
     */
    Reporter(QStringList files, QString uploadPath, QString uploadFilePrefix,
             Clock clock = monotonicMs, int delayMs = 5000);

    /**
     * Asks for a report called @p name that includes @p extraFiles, as will every later report.
     *
     * Dropped silently when the name was accepted five times since clearHistory(), when it was
     * accepted less than 30 s ago, and within the first 30 s of the clock. An empty name is never
     * limited. Each accepted request makes its own archive; one whose delay ends after this object
     * was destroyed makes none.
     */
    void requestReport(const QStringList &extraFiles, const QString &name);

    /**
     * Starts to pack those of @p files that exist, each once and in no particular order, and
     * returns. Does nothing when none exists. A failed archive is reported on standard error, as is
     * an upload directory from which others than root could not remove it.
     */
    void createReport(const QStringList &files, const QString &name);

    /** Forgets the accepted requests, so that every name may be reported five times more. */
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

    QStringList m_files; // only ever grows
    QString m_uploadPath;
    QString m_uploadFilePrefix;
    QHash<QString, HistoryRecord> m_history;
    Clock m_clock;
    int m_delayMs;
    qint64 m_lastTimeStamp = 0; // of an archive's name; milliseconds since the epoch
};
