// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Tells what pynx-watchdog-check says of many cases, and what the program makes of them, read with
// its own functions as Watchdog::init() does. test_comparison.py compares the two.
//
// comparison DIRECTORY <CASES >ANSWERS
//
// DIRECTORY becomes a program directory. Each line of both streams is a JSON object. A case has
// "arguments" and "documents": texts by their paths in DIRECTORY, in which a character is a byte.
#include "app/commandline.h"
#include "childrun.h"
#include "logging/settings.h"
#include "platform/pynx_api.h"
#include "testfiles.h"
#include "tools/check/arguments.h"
#include "tools/check/documents.h"
#include "tools/check/explanation.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <cstdio>

namespace {

template <typename Lines>
QJsonArray toArray(const Lines &lines)
{
    QJsonArray array;
    for (const auto &line : lines)
        array.append(QJsonDocument::fromJson(line.toJson().toUtf8()).object());
    return array;
}

QJsonArray watchList(const QVariantList &entries)
{
    QJsonArray list;
    for (const QVariant &value : entries) {
        const PynxWatchdogWatchProcess entry{PynxHash(value.toHash())};
        list.append(QJsonObject{
            {QStringLiteral("name"), entry.name()},
            {QStringLiteral("arguments"), QJsonArray::fromStringList(toStrings(entry.arguments()))},
            {QStringLiteral("period"), entry.period()},
            {QStringLiteral("maxLoad"), entry.maxLoad()},
            {QStringLiteral("threadInfo"), entry.threadInfo()},
            {QStringLiteral("maxReports"), entry.maxReports()},
            {QStringLiteral("logFile"), entry.logFile()},
        });
    }
    return list;
}

// What Watchdog::init() takes from the arguments and the settings.
QJsonObject program(const QStringList &arguments, const QString &directory)
{
    const CommandLine options = parseCommandLine(arguments, directory);
    QJsonObject result = {
        {QStringLiteral("log file"), options.logFileName},
        {QStringLiteral("log size"), static_cast<double>(options.logSize)},
        {QStringLiteral("log time"), options.logTime},
        {QStringLiteral("rotate only"), options.rotateOnly},
        {QStringLiteral("single run"), options.singleRun},
        {QStringLiteral("account"), options.userName},
        {QStringLiteral("application"), options.appPath},
        {QStringLiteral("application arguments"), QJsonArray::fromStringList(options.appArgs)},
    };
    if (options.rotateOnly)
        return result;
    const auto read = [&](const CMPath &path) { return readSettings(path.base(), directory); };
    const PynxSystemLogReportConfig content(
        PynxHash(read(PynxSystemManagerLogReportConfigPath()).toHash()));
    const PynxWatchdogReportsConfig upload(
        PynxHash(read(PynxWatchdogAutomaticReportingConfPath()).toHash()));
    const QJsonObject settings = {
        {QStringLiteral("memory line"), read(PynxWatchdogMemoryReportingConfPath()).toBool()},
        {QStringLiteral("reports"), read(PynxWatchdogAutomaticReportingPath()).toBool()},
        {QStringLiteral("report files"), QJsonArray::fromStringList(toStrings(content.files()))},
        {QStringLiteral("upload path"), upload.uploadPath()},
        {QStringLiteral("upload prefix"), upload.uploadFilePrefix()},
        {QStringLiteral("watch"), watchList(read(PynxWatchdogWatchProcessListPath()).toList())},
    };
    for (auto each = settings.constBegin(); each != settings.constEnd(); ++each)
        result.insert(each.key(), each.value());
    return result;
}

// The limits that a name of the table gives; null where the text for it is empty.
QJsonObject sizes(const QString &directory)
{
    const QString name = PynxSystemManagerLogFilesSizeConfigPath().base();
    QJsonObject result;
    const QVariantHash table = readSettings(name, directory).toHash();
    for (auto each = table.constBegin(); each != table.constEnd(); ++each) {
        const bool isEmpty = logFileSizeText(each.key(), directory).isEmpty();
        result.insert(each.key(),
                      isEmpty ? QJsonValue()
                              : static_cast<double>(logFileSizeFromConf(each.key(), directory)));
    }
    return result;
}

QJsonObject answer(const QJsonObject &question, const QString &directory)
{
    QDir(directory).removeRecursively();
    const QJsonObject documents = question.value(QStringLiteral("documents")).toObject();
    QJsonObject counts; // whether a document has content, by its path
    for (auto each = documents.constBegin(); each != documents.constEnd(); ++each) {
        const QString path = directory + QLatin1Char('/') + each.key();
        writeFile(path, each.value().toString().toLatin1());
        counts.insert(each.key(), !readSettingsFile(path).isNull());
    }
    QStringList arguments;
    const QJsonArray words = question.value(QStringLiteral("arguments")).toArray();
    for (const QJsonValue &word : words)
        arguments.append(word.toString());

    const bool parsed = canBeParsed(arguments, directory);
    QJsonObject result = {
        {QStringLiteral("counts"), counts},
        {QStringLiteral("findings"),
         toArray(checkArguments(arguments, directory) + checkSettings(directory))},
        {QStringLiteral("explanations"), toArray(explain(arguments, directory))},
        {QStringLiteral("settings"), toArray(explainSettings(directory))},
        {QStringLiteral("sizes"), sizes(directory)},
        {QStringLiteral("parsed"), parsed},
    };
    if (parsed) {
        result.insert(QStringLiteral("program"), program(arguments, directory));
    } else {
        const ChildResult end = runInChild([&] { parseCommandLine(arguments, directory); });
        result.insert(QStringLiteral("signal"), end.signal);
    }
    return result;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList own = QCoreApplication::arguments();
    if (own.size() != 2) {
        std::fputs("Usage: comparison DIRECTORY <CASES >ANSWERS\n", stderr);
        return 2;
    }
    QTextStream cases(stdin);
    cases.setCodec("UTF-8");
    while (!cases.atEnd()) {
        const QJsonObject question = QJsonDocument::fromJson(cases.readLine().toUtf8()).object();
        const QByteArray line =
            QJsonDocument(answer(question, own.at(1))).toJson(QJsonDocument::Compact);
        std::puts(line.constData());
        std::fflush(stdout); // a child must not have it in its copy of the buffer
    }
    return 0;
}
