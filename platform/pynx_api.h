// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariant>

/**
 * @file
 * The part of the maker's library libpynx_api that this program uses. pYNX is the maker's platform.
 *
 * The comments on documents, formats and null values describe the stand-in. With the maker's
 * library linked instead, that library decides.
 */

/** The place of one configuration document. */
class CMPath
{
public:
    explicit CMPath(QString base);

    /** The document's name, which is looked up in the settings directories. */
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

/** A hash of configuration values, which the classes below read; a plain value. */
class PynxHash
{
public:
    explicit PynxHash(QVariantHash values = QVariantHash());

    /** The member @p name, or a null value when there is none. */
    QVariant value(const QString &name) const;

private:
    QVariantHash m_values;
};

/** One entry of the watch list. A missing field reads as the null value of its type. */
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

/** The place of report archives. A missing field reads as an empty text. */
class PynxWatchdogReportsConfig
{
public:
    explicit PynxWatchdogReportsConfig(PynxHash hash);

    QString uploadPath() const;
    QString uploadFilePrefix() const;

private:
    PynxHash m_hash;
};

/** The files that every report includes. A missing field reads as an empty list. */
class PynxSystemLogReportConfig
{
public:
    explicit PynxSystemLogReportConfig(PynxHash hash);

    QVariantList files() const;

private:
    PynxHash m_hash;
};

/** The error that PynxJson::parse() found; empty when there was none. */
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
     * Returns the value of the JSON text @p json (UTF-8). Objects become QVariantHash, arrays
     * QVariantList. A text that cannot be parsed gives a null value and fills @p error. It also
     * stores in @p position, unless this is null, the offset in bytes at which parsing stopped.
     */
    static QVariant parse(const QByteArray &json, PynxError &error, uint *position);
};

/** The SDK's own logger; each process has one. */
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

/** The current local date and time as text for the beginning of a log line. Any thread. */
QString pynxLocalTimeDateString();

/** Sets the name of the calling thread in the operating system, which may cut the name. */
void pynxSetThreadName(const QString &name);
