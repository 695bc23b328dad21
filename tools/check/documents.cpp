// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/documents.h"

#include "platform/pynx_api.h"
#include "tools/check/nearestname.h"
#include "tools/check/payload.h"
#include "tools/check/schemarules.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

namespace {

struct KnownDocument
{
    DocumentType type;
    QString name;
    QString schema;
};

const QVector<KnownDocument> &knownDocuments()
{
    static const QVector<KnownDocument> known = {
        {DocumentType::WatchList, PynxWatchdogWatchProcessListPath().base(),
         QStringLiteral("WatchdogWatchProcessList")},
        {DocumentType::AutomaticReporting, PynxWatchdogAutomaticReportingPath().base(),
         QStringLiteral("WatchdogAutomaticReporting")},
        {DocumentType::AutomaticReportingConf, PynxWatchdogAutomaticReportingConfPath().base(),
         QStringLiteral("WatchdogAutomaticReportingConf")},
        {DocumentType::MemoryReporting, PynxWatchdogMemoryReportingConfPath().base(),
         QStringLiteral("WatchdogMemoryReportingConf")},
        {DocumentType::ReportFiles, PynxSystemManagerLogReportConfigPath().base(),
         QStringLiteral("SystemManagerLogReportConfig")},
        {DocumentType::LogSizes, PynxSystemManagerLogFilesSizeConfigPath().base(),
         QStringLiteral("SystemManagerLogFilesSizeConfig")},
    };
    return known;
}

QString guess(const QString &path)
{
    QStringList names;
    for (const KnownDocument &known : knownDocuments())
        names.append(known.name);
    return didYouMean(QFileInfo(path).fileName(), names);
}

Findings check(const QString &path, const KnownDocument &known)
{
    SettingsDocument document(path);
    if (!document.content().isNull())
        checkContent(document, known.type);
    if (!document.json().isUndefined() && !document.json().isNull())
        checkSchema(document, known.type, Schema(known.schema));
    return document.findings();
}

// What a settings document has beside the members that every such document has: names of sizes, or
// the names in a watch list.
QStringList namesIn(const SettingsDocument &document, const KnownDocument &known)
{
    QStringList names;
    const QVariantList entries = document.content().toList();
    for (const QVariant &entry : entries)
        names.append(PynxWatchdogWatchProcess(PynxHash(entry.toHash())).name());
    const QStringList expected = Schema(known.schema).memberNames(document.contentPath());
    const QStringList members = document.content().toHash().keys();
    for (const QString &member : members) {
        if (!expected.contains(member) && !isComment(member))
            names.append(member);
    }
    names.removeDuplicates();
    return names;
}

// A document of the site takes the place of the factory's as a whole.
Findings checkHidden(const QString &programDir, const KnownDocument &known)
{
    const QString factoryPath = programDir + QStringLiteral("/settings-default/") + known.name;
    const SettingsDocument site(programDir + QStringLiteral("/settings/") + known.name);
    if (site.content().isNull())
        return {};
    const QSet<QString> names = namesIn(site, known).toSet();
    const QStringList factoryNames = namesIn(SettingsDocument(factoryPath), known);
    Findings findings;
    for (const QString &name : factoryNames) {
        if (names.contains(name))
            continue;
        findings.append(warning(
            site.valuePlace(site.contentPath()), QStringLiteral("hidden-member"),
            QStringLiteral("%1 of %2 does not count, because this document takes the place of the "
                           "whole of it")
                .arg(quoted(name), factoryPath)));
    }
    return findings;
}

// Other files, such as a README, are nobody's settings.
Findings checkDirectory(const QString &directory)
{
    if (isClosed(directory + QStringLiteral("/."))) { // the dot is reached by whoever may enter
        return {error({directory}, QStringLiteral("unreadable"),
                      QStringLiteral("cannot be read by this account and was not checked"))};
    }
    Findings findings;
    const QStringList names = QDir(directory).entryList(
        QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &name : names) {
        const QString path = directory + QLatin1Char('/') + name;
        if (name.endsWith(QLatin1String(".json")) || !guess(path).isEmpty())
            findings += checkDocument(path);
    }
    return findings;
}

// A link that leads nowhere is there, too.
bool isThere(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

} // namespace

Findings checkDocument(const QString &path)
{
    const QString name = QFileInfo(path).fileName();
    for (const KnownDocument &known : knownDocuments()) {
        if (known.name == name)
            return check(path, known);
    }
    return {error({path}, QStringLiteral("unknown-document"),
                  QStringLiteral("no settings document has this name") + guess(path))};
}

Findings checkSettings(const QString &programDir)
{
    const QString site = programDir + QStringLiteral("/settings");
    const QString factory = programDir + QStringLiteral("/settings-default");
    const QString rule = QStringLiteral("missing-directory");
    Findings findings;
    const bool isFactoryClosed = isClosed(factory + QStringLiteral("/."));
    if (!isFactoryClosed && !QFileInfo(factory).isDir()) {
        findings.append(error({factory}, rule,
                              QStringLiteral("is no directory, and the supervisor goes on without "
                                             "the factory's settings")));
    }
    if (isThere(site) && !isClosed(site) && !QFileInfo(site).isDir()) {
        findings.append(error({site}, rule,
                              QStringLiteral("leads to no directory; only the factory's settings "
                                             "count")));
    }
    findings += checkDirectory(factory);
    findings += checkDirectory(site);

    const bool reports =
        readPayload(PynxWatchdogAutomaticReportingPath().base(), programDir).value.toBool();
    for (const KnownDocument &known : knownDocuments()) {
        const QString inSite = site + QLatin1Char('/') + known.name;
        const QString inFactory = factory + QLatin1Char('/') + known.name;
        if (!isFactoryClosed && QFileInfo(factory).isDir() && !isThere(inFactory)) {
            findings.append(warning({inFactory}, QStringLiteral("missing-document"),
                                    QStringLiteral("is missing, and nothing takes the place of the "
                                                   "site's where that is missing or malformed")));
        }
        if (!isThere(inSite))
            continue;
        findings += checkHidden(programDir, known);
        const bool isOfReports = known.type == DocumentType::AutomaticReportingConf
            || known.type == DocumentType::ReportFiles;
        if (isOfReports && !reports) {
            findings.append(warning({inSite}, QStringLiteral("no-effect"),
                                    QStringLiteral("has no effect, because automatic reporting is "
                                                   "off in %1")
                                        .arg(PynxWatchdogAutomaticReportingPath().base())));
        }
    }
    return findings;
}
