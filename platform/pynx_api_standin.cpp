// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "platform/pynx_api.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <cmath>
#include <utility>

#include <sys/prctl.h>

CMPath::CMPath(QString base) : m_base(std::move(base))
{ }

QString CMPath::base() const
{
    return m_base;
}

CMPath PynxWatchdogWatchProcessListPath()
{
    return CMPath(QStringLiteral("WatchdogWatchProcessList.json"));
}

CMPath PynxWatchdogAutomaticReportingPath()
{
    return CMPath(QStringLiteral("WatchdogAutomaticReporting.json"));
}

CMPath PynxWatchdogAutomaticReportingConfPath()
{
    return CMPath(QStringLiteral("WatchdogAutomaticReportingConf.json"));
}

CMPath PynxWatchdogMemoryReportingConfPath()
{
    return CMPath(QStringLiteral("WatchdogMemoryReportingConf.json"));
}

CMPath PynxSystemManagerLogReportConfigPath()
{
    return CMPath(QStringLiteral("SystemManagerLogReportConfig.json"));
}

CMPath PynxSystemManagerLogFilesSizeConfigPath()
{
    return CMPath(QStringLiteral("SystemManagerLogFilesSizeConfig.json"));
}

PynxHash::PynxHash(QVariantHash values) : m_values(std::move(values))
{ }

QVariant PynxHash::value(const QString &name) const
{
    return m_values.value(name);
}

PynxWatchdogWatchProcess::PynxWatchdogWatchProcess(PynxHash hash) : m_hash(std::move(hash))
{ }

QString PynxWatchdogWatchProcess::name() const
{
    return m_hash.value(QStringLiteral("name")).toString();
}

QVariantList PynxWatchdogWatchProcess::arguments() const
{
    return m_hash.value(QStringLiteral("arguments")).toList();
}

int PynxWatchdogWatchProcess::period() const
{
    return m_hash.value(QStringLiteral("period")).toInt();
}

int PynxWatchdogWatchProcess::maxLoad() const
{
    return m_hash.value(QStringLiteral("maxLoad")).toInt();
}

bool PynxWatchdogWatchProcess::threadInfo() const
{
    return m_hash.value(QStringLiteral("threadInfo")).toBool();
}

int PynxWatchdogWatchProcess::maxReports() const
{
    return m_hash.value(QStringLiteral("maxReports")).toInt();
}

QString PynxWatchdogWatchProcess::logFile() const
{
    return m_hash.value(QStringLiteral("logFile")).toString();
}

PynxWatchdogReportsConfig::PynxWatchdogReportsConfig(PynxHash hash) : m_hash(std::move(hash))
{ }

QString PynxWatchdogReportsConfig::uploadPath() const
{
    return m_hash.value(QStringLiteral("uploadPath")).toString();
}

QString PynxWatchdogReportsConfig::uploadFilePrefix() const
{
    return m_hash.value(QStringLiteral("uploadFilePrefix")).toString();
}

PynxSystemLogReportConfig::PynxSystemLogReportConfig(PynxHash hash) : m_hash(std::move(hash))
{ }

QVariantList PynxSystemLogReportConfig::files() const
{
    return m_hash.value(QStringLiteral("files")).toList();
}

namespace {

// A whole number becomes an integer, as in Qt 5.15. In older versions every number is a double, and
// some of them write a million as "1e+06".
QVariant toNumber(double number)
{
    constexpr double beyond = 9223372036854775808.0; // 2 to the power of 63
    if (number >= -beyond && number < beyond && number == std::trunc(number))
        return static_cast<qint64>(number);
    return number;
}

// Configuration trees consist of hashes, but QJsonValue's own conversion makes maps of inner
// objects.
QVariant toTree(const QJsonValue &json)
{
    if (json.isObject()) {
        const QJsonObject object = json.toObject();
        QVariantHash hash;
        for (auto member = object.constBegin(); member != object.constEnd(); ++member)
            hash.insert(member.key(), toTree(member.value()));
        return hash;
    }
    if (json.isArray()) {
        QVariantList list;
        const QJsonArray array = json.toArray();
        for (const QJsonValue &element : array)
            list.append(toTree(element));
        return list;
    }
    if (json.isDouble())
        return toNumber(json.toDouble());
    // JSON's null is a null value, so that a document can state that it has no value.
    return json.isNull() ? QVariant() : json.toVariant();
}

} // namespace

QVariant PynxJson::parse(const QByteArray &json, PynxError &error, uint *position)
{
    QJsonParseError found;
    const QJsonDocument document = QJsonDocument::fromJson(json, &found);
    if (found.error != QJsonParseError::NoError) {
        error.code = found.error;
        error.message = found.errorString();
        if (position != nullptr)
            *position = static_cast<uint>(found.offset);
        return QVariant();
    }
    return document.isObject() ? toTree(document.object()) : toTree(document.array());
}

PynxLogger *PynxLogger::instance()
{
    static PynxLogger logger;
    return &logger;
}

// The stand-in's logger writes nothing, so there is nothing to switch off.
void PynxLogger::disable()
{ }

QString pynxLocalTimeDateString()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
}

void pynxSetThreadName(const QString &name)
{
    // The kernel keeps the first 15 bytes.
    ::prctl(PR_SET_NAME, name.toUtf8().constData());
}
