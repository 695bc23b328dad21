// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/arguments.h"

#include "app/commandline.h"
#include "logging/settings.h"
#include "platform/pynx_api.h"
#include "tools/check/guardarguments.h"
#include "tools/check/nearestname.h"
#include "tools/check/payload.h"
#include "tools/check/sizetext.h"

#include <QDir>
#include <QHash>
#include <QVector>

#include <algorithm>

namespace {

using Kind = CommandLineWord::Kind;
using Words = QVector<CommandLineWord>;

const QLatin1String appOption("--app");
const QLatin1String nameOption("--logfileName");
const QLatin1String sizeOption("--logfileSize");
const QLatin1String sizeNameOption("--logfileSizeConf");
const QLatin1String userOption("--user");
const QLatin1String timeSwitch("--logTime");
const QLatin1String rotateSwitch("--rotateOnly");
const QLatin1String singleRunSwitch("--singleRun");

Place argument(int index)
{
    return {QStringLiteral("arguments"), index + 1, 0};
}

Place valueOf(const CommandLineWord &word)
{
    return argument(word.index + 1);
}

// The word that counts for @p option, or null.
const CommandLineWord *find(const Words &words, QLatin1String option)
{
    const CommandLineWord *found = nullptr;
    for (const CommandLineWord &word : words) {
        if ((word.kind == Kind::Switch || word.kind == Kind::Option) && word.text == option)
            found = &word;
    }
    return found;
}

// The word that sets the size of the log, or null.
const CommandLineWord *findSize(const Words &words)
{
    const CommandLineWord *size = find(words, sizeOption);
    const CommandLineWord *name = find(words, sizeNameOption);
    if (size == nullptr || name == nullptr)
        return size != nullptr ? size : name;
    return size->index > name->index ? size : name;
}

Kind kindOf(const QString &text)
{
    return splitCommandLine({text}).constFirst().kind;
}

// Whether the supervisor reads the document of sizes for @p word, and that cannot be done here.
bool hasUnknownSize(const CommandLineWord &word, const QString &programDir)
{
    return word.text == sizeNameOption
        && !readPayload(PynxSystemManagerLogFilesSizeConfigPath().base(), programDir).isKnown;
}

// ---- Each word for itself

Finding unknownWord(const CommandLineWord &word)
{
    // Whether a word is an option, splitCommandLine() says; these are proposals.
    static const QStringList known = {appOption,  nameOption, sizeOption,   sizeNameOption,
                                      userOption, timeSwitch, rotateSwitch, singleRunSwitch};
    const QString name = word.text.section(QLatin1Char('='), 0, 0);
    const QString hint = name != word.text && known.contains(name)
        ? QStringLiteral("; the value of %1 is an argument of its own").arg(quoted(name))
        : didYouMean(word.text, known);
    return error(argument(word.index), QStringLiteral("unknown-word"),
                 quoted(word.text) + QStringLiteral(" is no option and is ignored") + hint);
}

Findings checkSizeName(const CommandLineWord &word, const QString &programDir)
{
    if (hasUnknownSize(word, programDir))
        return {};
    Findings findings;
    const QVariantHash sizes =
        readSettings(PynxSystemManagerLogFilesSizeConfigPath().base(), programDir).toHash();
    if (!sizes.contains(word.value)) {
        const bool hasDefault = sizes.contains(QStringLiteral("default"));
        const QString message =
            QStringLiteral("the table of sizes has no %1; ").arg(quoted(word.value))
            + (hasDefault ? QStringLiteral("its \"default\" is used")
                          : QStringLiteral("without a \"default\" in it there is no log file"))
            + didYouMean(word.value, sizes.keys());
        const QString rule = QStringLiteral("size-name");
        findings += hasDefault ? warning(valueOf(word), rule, message)
                               : error(valueOf(word), rule, message);
    }
    if (logFileSizeText(word.value, programDir).isEmpty()) {
        findings +=
            error(valueOf(word), QStringLiteral("size-empty"),
                  QStringLiteral("the table of sizes has an empty text for %1, which ends the "
                                 "supervisor with a failed assertion")
                      .arg(quoted(word.value)));
    }
    return findings;
}

Findings checkValue(const CommandLineWord &word, const QString &programDir)
{
    if (kindOf(word.value) != Kind::Unknown) {
        return {error(valueOf(word), QStringLiteral("value-is-option"),
                      QStringLiteral("%1 is the value of %2 here, and no option")
                          .arg(quoted(word.value), quoted(word.text)))};
    }
    if (word.value.startsWith(QLatin1String("--"))) {
        return {warning(valueOf(word), QStringLiteral("value-is-option"),
                        QStringLiteral("%1 looks like an option, but is the value of %2")
                            .arg(quoted(word.value), quoted(word.text)))};
    }
    if (word.text == sizeOption)
        return checkSizeText(word.value, valueOf(word));
    if (word.text == sizeNameOption)
        return checkSizeName(word, programDir);
    if (word.text == nameOption && word.value.isEmpty()) {
        return {error(valueOf(word), QStringLiteral("value-empty"),
                      QStringLiteral("an empty name means no log file; the output goes to the "
                                     "supervisor's standard output"))};
    }
    if (word.text == userOption && word.value.isEmpty()) {
        return {error(valueOf(word), QStringLiteral("value-empty"),
                      QStringLiteral("an empty account is ignored; the application runs in the "
                                     "supervisor's own"))};
    }
    if (word.text == appOption && word.value.isEmpty()) {
        return {error(valueOf(word), QStringLiteral("value-empty"),
                      QStringLiteral("an empty application cannot be started; the supervisor ends "
                                     "with status 1"))};
    }
    if (word.text == nameOption && QDir::isRelativePath(word.value)) {
        return {warning(valueOf(word), QStringLiteral("log-relative"),
                        QStringLiteral("%1 is looked for where the supervisor is started, which "
                                       "differs between a shell, a unit and an init script")
                            .arg(quoted(word.value)))};
    }
    return {};
}

Findings checkWord(const CommandLineWord &word, const QString &programDir)
{
    switch (word.kind) {
    case Kind::Unknown:
        return {unknownWord(word)};
    case Kind::OptionWithoutValue:
        return {error(argument(word.index), QStringLiteral("value-missing"),
                      quoted(word.text) + QStringLiteral(" has no value and is ignored"))};
    case Kind::Option:
        return checkValue(word, programDir);
    case Kind::Switch:
        break;
    }
    return {};
}

// ---- How the words go together

Findings checkRepetitions(const Words &words)
{
    Findings findings;
    QHash<QString, const CommandLineWord *> earlier; // by what they set
    for (const CommandLineWord &word : words) {
        if (word.kind != Kind::Switch && word.kind != Kind::Option)
            continue;
        const QString target = word.text == sizeNameOption ? QString(sizeOption) : word.text;
        const CommandLineWord *&previous = earlier[target];
        if (previous != nullptr) {
            const QString message = QStringLiteral("%1 is given again as argument %2, which counts")
                                        .arg(quoted(previous->text))
                                        .arg(word.index + 1);
            const bool same = previous->text == word.text && previous->value == word.value;
            const QString rule = QStringLiteral("overridden");
            findings += same ? warning(argument(previous->index), rule, message)
                             : error(argument(previous->index), rule, message);
        }
        previous = &word;
    }
    return findings;
}

Findings checkLog(const Words &words, bool hasLog)
{
    const CommandLineWord *name = find(words, nameOption);
    const CommandLineWord *size = findSize(words);
    const CommandLineWord *time = find(words, timeSwitch);
    const QString echoed =
        QStringLiteral("there is no log file; the output goes to the supervisor's standard output");
    Findings findings;
    if (name != nullptr && size == nullptr) {
        findings += error(argument(name->index), QStringLiteral("log-size-missing"),
                          QStringLiteral("without a size ") + echoed);
    }
    if (size != nullptr && name == nullptr) {
        findings += error(argument(size->index), QStringLiteral("log-name-missing"),
                          QStringLiteral("without \"--logfileName\" ") + echoed);
    }
    if (time != nullptr && !hasLog) {
        findings += error(argument(time->index), QStringLiteral("log-time"),
                          QStringLiteral("times are written into a log file only, and there is "
                                         "none"));
    }
    return findings;
}

// The words after the application that would be options before it.
Findings checkApplicationsArguments(const QStringList &arguments, int first)
{
    Findings findings;
    for (int i = first; i < arguments.size(); ++i) {
        if (kindOf(arguments.at(i)) != Kind::Unknown) {
            findings += warning(argument(i), QStringLiteral("option-of-application"),
                                QStringLiteral("%1 stands behind the application, and is for it")
                                    .arg(quoted(arguments.at(i))));
        }
    }
    return findings;
}

// ---- How the words go with the settings

Payload reportsSwitch(const QString &programDir)
{
    return readPayload(PynxWatchdogAutomaticReportingPath().base(), programDir);
}

Findings checkRotateOnly(const CommandLineWord &word, const QString &programDir)
{
    Findings findings;
    const auto ignored = [&](const Payload &payload, const QString &what) {
        findings += warning(argument(word.index), QStringLiteral("rotate-only"),
                            QStringLiteral("\"--rotateOnly\" has no %1, which %2 asks for")
                                .arg(what, quoted(payload.source)));
    };
    const Payload watchList = readPayload(PynxWatchdogWatchProcessListPath().base(), programDir);
    if (!watchList.value.toList().isEmpty())
        ignored(watchList, QStringLiteral("load alarms"));
    const Payload reports = reportsSwitch(programDir);
    if (reports.value.toBool())
        ignored(reports, QStringLiteral("reports"));
    const Payload memory = readPayload(PynxWatchdogMemoryReportingConfPath().base(), programDir);
    if (memory.value.toBool())
        ignored(memory, QStringLiteral("memory line"));
    return findings;
}

// Whether the reports' @p files have @p path, or a directory in which it lies.
bool hasFile(const QStringList &files, const QString &path)
{
    return std::any_of(files.cbegin(), files.cend(), [&](const QString &file) {
        const QString listed = QDir::cleanPath(QDir::current().absoluteFilePath(file));
        return path == listed || path.startsWith(listed + QLatin1Char('/'));
    });
}

Findings checkReportedLog(const CommandLineWord &name, const QString &programDir)
{
    const Payload config = readPayload(PynxSystemManagerLogReportConfigPath().base(), programDir);
    if (!config.isKnown)
        return {};
    const QStringList files =
        toStrings(PynxSystemLogReportConfig(PynxHash(config.value.toHash())).files());
    const QString log = QDir::cleanPath(QDir::current().absoluteFilePath(name.value));
    Findings findings;
    for (const QString &path : {log, log + QStringLiteral(".0")}) {
        if (!hasFile(files, path)) {
            findings += warning(valueOf(name), QStringLiteral("log-not-reported"),
                                QStringLiteral("reports are made without %1, which is not among "
                                               "the \"files\" of %2")
                                    .arg(quoted(path), quoted(config.source)));
        }
    }
    return findings;
}

// Checks what takes all @p words, read as @p options, and the settings to judge.
Findings checkTogether(const Words &words, const CommandLine &options, const QString &programDir)
{
    const bool hasLog = !options.logFileName.isEmpty() && options.logSize != 0;
    Findings findings = checkLog(words, hasLog);
    if (options.rotateOnly)
        return findings + checkRotateOnly(*find(words, rotateSwitch), programDir);
    if (!reportsSwitch(programDir).value.toBool())
        return findings;
    if (hasLog)
        findings += checkReportedLog(*find(words, nameOption), programDir);
    if (options.singleRun) {
        findings +=
            warning(argument(find(words, singleRunSwitch)->index), QStringLiteral("single-run"),
                    QStringLiteral("a crash is not reported: \"--singleRun\" ends the supervisor "
                                   "with the application, and a report is made 5 s later"));
    }
    return findings;
}

} // namespace

bool canBeParsed(const QStringList &arguments, const QString &programDir)
{
    const Words words = splitCommandLine(arguments);
    return std::none_of(words.cbegin(), words.cend(), [&](const CommandLineWord &word) {
        if (word.kind != Kind::Option)
            return false;
        if (word.text == sizeOption)
            return word.value.isEmpty();
        return word.text == sizeNameOption
            && (hasUnknownSize(word, programDir)
                || logFileSizeText(word.value, programDir).isEmpty());
    });
}

Findings checkArguments(const QStringList &arguments, const QString &programDir)
{
    if (arguments.isEmpty()) {
        return {error({QStringLiteral("arguments"), 0, 0}, QStringLiteral("no-arguments"),
                      QStringLiteral("without arguments the supervisor prints its usage and ends "
                                     "with status 1"))};
    }
    const Words words = splitCommandLine(arguments);
    Findings findings;
    for (const CommandLineWord &word : words)
        findings += checkWord(word, programDir);
    findings += checkRepetitions(words);

    const CommandLineWord *app = find(words, appOption);
    if (app != nullptr) {
        findings += checkApplicationsArguments(arguments, app->index + 2);
        findings += checkGuard(arguments.mid(app->index + 1), app->index + 1);
    } else {
        findings += error({QStringLiteral("arguments"), 0, 0}, QStringLiteral("no-application"),
                          QStringLiteral("\"--app\" names no application; the supervisor ends with "
                                         "status 1"));
    }
    if (canBeParsed(arguments, programDir))
        findings += checkTogether(words, parseCommandLine(arguments, programDir), programDir);

    const auto isBefore = [](const Finding &left, const Finding &right) {
        return left.place.line < right.place.line;
    };
    std::stable_sort(findings.begin(), findings.end(), isBefore);
    return findings;
}
