// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/explanation.h"

#include "app/commandline.h"
#include "logging/settings.h"
#include "platform/pynx_api.h"
#include "tools/check/arguments.h"
#include "tools/check/findings.h"
#include "tools/check/guardarguments.h"
#include "tools/check/payload.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

using Kind = CommandLineWord::Kind;
using Explanations = QVector<Explanation>;

const QLatin1String defaultSource("default");
constexpr int maxEntries = 1000; // of the watch list

QString toCompactText(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

// A value as JSON. A document could only be an object or an array before Qt 5.15.
QString valueText(const QVariant &value)
{
    const QString array = QString::fromUtf8(
        QJsonDocument(QJsonArray{QJsonValue::fromVariant(value)}).toJson(QJsonDocument::Compact));
    return array.mid(1, array.size() - 2);
}

// ---- What the arguments say

// Where the last of @p options comes from.
QString sourceOf(const QVector<CommandLineWord> &words, const QStringList &options)
{
    QString source = defaultSource;
    for (const CommandLineWord &word : words) {
        const bool counts = word.kind == Kind::Switch || word.kind == Kind::Option;
        if (counts && options.contains(word.text))
            source = QStringLiteral("arguments:%1").arg(word.index + 1);
    }
    return source;
}

Payload sizeTable(const QString &programDir)
{
    return readPayload(PynxSystemManagerLogFilesSizeConfigPath().base(), programDir);
}

// The explanation of a document that cannot be read here.
Explanation notKnown(const QString &setting, const Payload &payload)
{
    return {
        setting, QVariant(), payload.source,
        QStringLiteral("not known: this account may not read the document, or it is no file, or "
                       "too large for one")};
}

// How the supervisor ends before it runs the application; empty: it does not.
Explanations explainEnd(const QStringList &arguments, const QString &programDir)
{
    const Payload table = sizeTable(programDir);
    QString meaning;
    if (arguments.isEmpty()) {
        meaning = QStringLiteral("without arguments the supervisor prints its usage and ends with "
                                 "status 1");
    } else if (!canBeParsed(arguments, programDir)) {
        if (!table.isKnown)
            return {notKnown(QStringLiteral("start"), table)};
        meaning = QStringLiteral("an empty size ends the supervisor with a failed assertion");
    } else if (parseCommandLine(arguments, programDir).appPath.isEmpty()) {
        meaning = QStringLiteral("without an application the supervisor ends with status 1");
    }
    if (meaning.isEmpty())
        return {};
    return {{QStringLiteral("start"), false, QStringLiteral("arguments"), meaning}};
}

Explanations explainArguments(const CommandLine &options, const QStringList &arguments,
                              const QString &programDir)
{
    const QVector<CommandLineWord> words = splitCommandLine(arguments);
    const QString sizeName = QStringLiteral("--logfileSizeConf");
    const QString sizeSource = sourceOf(words, {QStringLiteral("--logfileSize"), sizeName});
    QString table;
    if (sizeSource == sourceOf(words, {sizeName}))
        table = QStringLiteral(", as in ") + sizeTable(programDir).source;
    const QString app = QStringLiteral("--app");
    const bool hasLog = !options.logFileName.isEmpty() && options.logSize != 0;
    const QString noLog =
        QStringLiteral("no log file; the output goes to the supervisor's standard output");
    return {
        {QStringLiteral("application"), options.appPath, sourceOf(words, {app}),
         options.singleRun ? QStringLiteral("is run once") : QStringLiteral("is kept running")},
        {QStringLiteral("application arguments"), options.appArgs, sourceOf(words, {app}),
         QStringLiteral("are handed to the application as they are")},
        {QStringLiteral("account"), options.userName, sourceOf(words, {QStringLiteral("--user")}),
         options.userName.isEmpty()
             ? QStringLiteral("the application runs in the supervisor's own account")
             : QStringLiteral("the application runs in this account; where it is unknown, in the "
                              "supervisor's own")},
        {QStringLiteral("log file"), options.logFileName,
         sourceOf(words, {QStringLiteral("--logfileName")}),
         hasLog ? QStringLiteral("is continued where it exists; at the limit it becomes ")
                 + quoted(options.logFileName + QStringLiteral(".0"))
                : noLog},
        {QStringLiteral("log size"), options.logSize, sizeSource,
         hasLog ? QStringLiteral("bytes%1; log and .0 take twice as much, and 64 KiB, at most")
                      .arg(table)
                : noLog},
        {QStringLiteral("log time"), options.logTime,
         sourceOf(words, {QStringLiteral("--logTime")}),
         options.logTime && hasLog
             ? QStringLiteral("a line with the time in front of new output, one a second at most")
             : QStringLiteral("no lines with the time")},
        {QStringLiteral("single run"), options.singleRun,
         sourceOf(words, {QStringLiteral("--singleRun")}),
         options.singleRun
             ? QStringLiteral("the supervisor ends with the application, and with its status")
             : QStringLiteral("the application is started again 1 s after each end")},
        {QStringLiteral("rotate only"), options.rotateOnly,
         sourceOf(words, {QStringLiteral("--rotateOnly")}),
         options.rotateOnly
             ? QStringLiteral("no hardware watchdog, reboot, boot flags, snapshots and settings")
             : QStringLiteral("the board is looked after")},
    };
}

// ---- What the settings say

Explanations explainSwitch(const QString &setting, const QString &name, const QString &programDir,
                           const QString &on, const QString &off)
{
    const Payload payload = readPayload(name, programDir);
    if (!payload.isKnown)
        return {notKnown(setting, payload)};
    const bool value = payload.value.toBool();
    return {{setting, value, payload.source, value ? on : off}};
}

// A document's member: its source is the document only where it has the member.
QString memberSource(const QVariantHash &object, const QString &member, const QString &source)
{
    return object.contains(member) ? source : defaultSource;
}

Explanations explainReports(const QString &programDir, bool singleRun)
{
    const QString name = PynxWatchdogAutomaticReportingPath().base();
    Explanations result = explainSwitch(
        QStringLiteral("reports"), name, programDir,
        singleRun ? QStringLiteral("an archive when the application asks for one, and lives 5 s")
                  : QStringLiteral("an archive when the application asks for one, and after a "
                                   "crash"),
        QStringLiteral("no archives; the upload and the files of reports do not matter"));

    const Payload content = readPayload(PynxSystemManagerLogReportConfigPath().base(), programDir);
    if (content.isKnown) {
        const QVariantHash object = content.value.toHash();
        result.append({QStringLiteral("report files"),
                       toStrings(PynxSystemLogReportConfig(PynxHash(object)).files()),
                       memberSource(object, QStringLiteral("files"), content.source),
                       QStringLiteral("those of them that exist are in every archive")});
    } else {
        result.append(notKnown(QStringLiteral("report files"), content));
    }

    const Payload upload = readPayload(PynxWatchdogAutomaticReportingConfPath().base(), programDir);
    if (!upload.isKnown)
        return result << notKnown(QStringLiteral("upload path"), upload);
    const QVariantHash object = upload.value.toHash();
    const PynxWatchdogReportsConfig config{PynxHash(object)};
    result.append(
        {QStringLiteral("upload path"), config.uploadPath(),
         memberSource(object, QStringLiteral("uploadPath"), upload.source),
         QStringLiteral("directory of the archives; made, writable for everybody, where it "
                        "is missing")});
    result.append(
        {QStringLiteral("upload prefix"), config.uploadFilePrefix(),
         memberSource(object, QStringLiteral("uploadFilePrefix"), upload.source),
         QStringLiteral("archives are called ")
             + quoted(config.uploadFilePrefix() + QStringLiteral("-NAME-MILLISECONDS.tar.gz"))});
    return result;
}

QString periodMeaning(int period)
{
    if (period <= 0)
        return QStringLiteral("an alarm every second, whatever the load");
    return QStringLiteral("an alarm after %1 such seconds in a row").arg(period);
}

QString maxReportsMeaning(int maxReports)
{
    if (maxReports <= 0)
        return QStringLiteral("no alarm is ever written");
    return QStringLiteral("at most %1 alarms in the supervisor's life").arg(maxReports);
}

Explanations explainWatch(int number, const QVariantHash &object, const QString &source)
{
    const PynxWatchdogWatchProcess entry{PynxHash(object)};
    const QStringList arguments = toStrings(entry.arguments());
    Explanations result;
    const auto add = [&](const QString &member, const QVariant &value, const QString &meaning) {
        result.append({QStringLiteral("watch %1 ").arg(number) + member, value,
                       memberSource(object, member, source), meaning});
    };
    add(QStringLiteral("name"), entry.name(),
        QStringLiteral("the first process of this name; a line in the log when there is none for "
                       "30 s"));
    add(QStringLiteral("arguments"), arguments,
        arguments.isEmpty() ? QStringLiteral("with any arguments")
                            : QStringLiteral("with all of these among its arguments"));
    add(QStringLiteral("maxLoad"), entry.maxLoad(),
        QStringLiteral("seconds at or over %1 % of all processors together count")
            .arg(entry.maxLoad()));
    add(QStringLiteral("period"), entry.period(), periodMeaning(entry.period()));
    add(QStringLiteral("threadInfo"), entry.threadInfo(),
        entry.threadInfo() ? QStringLiteral("an alarm lists the five busiest threads")
                           : QStringLiteral("an alarm lists no threads"));
    add(QStringLiteral("maxReports"), entry.maxReports(), maxReportsMeaning(entry.maxReports()));
    add(QStringLiteral("logFile"), entry.logFile(), QStringLiteral("not used"));
    return result;
}

Explanations explainWatchList(const QString &programDir)
{
    const QString setting = QStringLiteral("watch list");
    const Payload payload = readPayload(PynxWatchdogWatchProcessListPath().base(), programDir);
    if (!payload.isKnown)
        return {notKnown(setting, payload)};
    const QVariantList entries = payload.value.toList();
    QString meaning = QStringLiteral("processes whose load is watched");
    if (entries.isEmpty())
        meaning = QStringLiteral("no process is watched");
    else if (entries.size() > maxEntries)
        meaning += QStringLiteral("; the first %1 follow").arg(maxEntries);
    Explanations result = {{setting, entries.size(), payload.source, meaning}};
    for (int i = 0; i < std::min(entries.size(), maxEntries); ++i)
        result += explainWatch(i + 1, entries.at(i).toHash(), payload.source);
    return result;
}

Explanations explainMemoryLine(const QString &programDir)
{
    return explainSwitch(QStringLiteral("memory line"),
                         PynxWatchdogMemoryReportingConfPath().base(), programDir,
                         QStringLiteral("a line about the memory in the log every 3 minutes"),
                         QStringLiteral("no line about the memory"));
}

Explanations explainFeatures(const QString &programDir, bool singleRun)
{
    return explainMemoryLine(programDir) + explainReports(programDir, singleRun)
        + explainWatchList(programDir);
}

Explanations explainSizes(const QString &programDir)
{
    const QString setting = QStringLiteral("sizes");
    const Payload payload = sizeTable(programDir);
    if (!payload.isKnown)
        return {notKnown(setting, payload)};
    const QVariantHash texts = payload.value.toHash();
    QVariantMap sizes;
    for (auto entry = texts.constBegin(); entry != texts.constEnd(); ++entry) {
        const QString text = entry.value().toString();
        sizes.insert(entry.key(),
                     text.isEmpty() ? QVariant() : static_cast<quint32>(parseSize(text)));
    }
    return {{setting, sizes, payload.source,
             QStringLiteral("bytes for each name that --logfileSizeConf takes; null ends the "
                            "supervisor")}};
}

// ---- What nothing can change

Explanations explainFixed(const CommandLine &options)
{
    const QString fixed = QStringLiteral("fixed");
    Explanations result;
    if (options.rotateOnly)
        return result;
    if (!options.singleRun) {
        result.append({QStringLiteral("reboot"), 3, fixed,
                       QStringLiteral("at the application's third end, the board is rebooted")});
    }
    result.append({QStringLiteral("hardware watchdog"), 30, fixed,
                   QStringLiteral("seconds without a feed until it resets the board; it is fed "
                                  "every 10 s")});
    result.append({QStringLiteral("snapshots"), 10, fixed,
                   QStringLiteral("seconds between two; /tmp/log/system has the last three")});
    result.append({QStringLiteral("boot flags"), 10, fixed,
                   QStringLiteral("seconds that the application must run until they are cleared")});
    return result;
}

} // namespace

QString Explanation::toText() const
{
    const QString shown = value.isValid() ? valueText(value) : QStringLiteral("not known");
    return setting + QStringLiteral(": ") + shown + QStringLiteral("\n    ") + meaning
        + QStringLiteral(" [") + source + QLatin1Char(']');
}

QString Explanation::toJson() const
{
    return toCompactText({{QStringLiteral("setting"), setting},
                          {QStringLiteral("value"), QJsonValue::fromVariant(value)},
                          {QStringLiteral("source"), source},
                          {QStringLiteral("meaning"), meaning}});
}

Explanations explain(const QStringList &arguments, const QString &programDir)
{
    Explanations result = explainEnd(arguments, programDir);
    if (!canBeParsed(arguments, programDir))
        return result + explainSettings(programDir);
    const CommandLine options = parseCommandLine(arguments, programDir);
    result += explainArguments(options, arguments, programDir);
    result += explainGuard(QStringList{options.appPath} + options.appArgs,
                           sourceOf(splitCommandLine(arguments), {QStringLiteral("--app")}));
    if (!options.rotateOnly)
        result += explainFeatures(programDir, options.singleRun);
    return result + explainFixed(options);
}

Explanations explainSettings(const QString &programDir)
{
    return explainFeatures(programDir, false) + explainSizes(programDir);
}
