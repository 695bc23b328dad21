// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariant>

/**
 * @file
 * The part of the maker's library libpynx_api that this program uses.
 *
 * What is said below of documents, formats and null values is what the stand-in does; with the
 * maker's library linked instead, that library decides.
 */

/** The place of one configuration document. */
class CMPath
{
public:
    explicit CMPath(QString base);

    /** The document's name, to be looked up below the settings directories. */
    QString base() const;

private:
    QString m_base;
};

CMPath PynxWatchdogWatchProcessListPath();
CMPath PynxWatchdogAutomaticReportingPath();
CMPath PynxWatchdogAutomaticReportingConfPath();
CMPath PynxWatchdogMemoryReportingConfPath();
CMPath PynxSystemManagerLogReportConfigPath();
CMPath PynxSystemManagerLogFilesSizeConfigPath();

/** A configuration hash as the typed views below take it; a plain value. */
class PynxHash
{
public:
    explicit PynxHash(QVariantHash values = QVariantHash());

    /** The member @p name, or a null value when there is none. */
    QVariant value(const QString &name) const;

private:
    QVariantHash m_values;
};

/** One entry of the watch list; an absent field reads as the null value of its type. */
class PynxWatchdogWatchProcess
{
public:
    explicit PynxWatchdogWatchProcess(PynxHash hash);

    QString name() const;
    QVariantList arguments() const;
    int period() const;  ///< seconds
    int maxLoad() const; ///< percent of all processors' time together
    bool threadInfo() const;
    int maxReports() const;
    QString logFile() const;

private:
    PynxHash m_hash;
};

/** Where report archives go; an absent field reads as an empty text. */
class PynxWatchdogReportsConfig
{
public:
    explicit PynxWatchdogReportsConfig(PynxHash hash);

    QString uploadPath() const;
    QString uploadFilePrefix() const;

private:
    PynxHash m_hash;
};

/** Which files every report holds; an absent field reads as an empty list. */
class PynxSystemLogReportConfig
{
public:
    explicit PynxSystemLogReportConfig(PynxHash hash);

    QVariantList files() const;

private:
    PynxHash m_hash;
};

/** What PynxJson::parse() found wrong; empty when nothing was. */
struct PynxError
{
    int code = 0; ///< 0: no error
    QString message;
};

/** The SDK's JSON parser. */
class PynxJson
{
public:
    /**
     * The value of the JSON text @p json (UTF-8); objects become QVariantHash, arrays QVariantList.
     * A text that cannot be parsed gives a null value, fills @p error and, where @p position is not
     * null, stores there the offset in bytes at which parsing stopped.
     */
    static QVariant parse(const QByteArray &json, PynxError &error, uint *position);
};

/** The SDK's own logger, one to a process. */
class PynxLogger
{
public:
    /** The logger; it belongs to the library and lives until the process ends. */
    static PynxLogger *instance();

    /** Switches the logger off for this process. */
    void disable();

private:
    PynxLogger() = default;
};

/** The local date and time, now, as text for the head of a log line. Any thread. */
QString pynxLocalTimeDateString();

/** Names the calling thread for the operating system, which may cut the name. */
void pynxSetThreadName(const QString &name);
