// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/commandline.h"
#include "tools/check/arguments.h"
#include "tools/check/board.h"
#include "tools/check/documents.h"
#include "tools/check/explanation.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace {

enum ExitStatus { NoError, ErrorsFound, WrongUsage };

void printLine(const QString &line)
{
    std::puts(line.toUtf8().constData());
}

int wrongUsage(const QString &message)
{
    std::fprintf(stderr, "pynx-watchdog-check: %s\nTry pynx-watchdog-check --help.\n",
                 message.toLocal8Bit().constData());
    return WrongUsage;
}

// The status to end with. Findings that nobody could read must not look like none.
int finish(ExitStatus status)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    std::fputs("pynx-watchdog-check: standard output cannot be written to\n", stderr);
    return ErrorsFound;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("pynx-watchdog-check"));
    QCoreApplication::setApplicationVersion(QStringLiteral(WATCHDOG_VERSION));

    // What follows "--" is the supervisor's own command line.
    QStringList own = QCoreApplication::arguments();
    const int separator = own.indexOf(QStringLiteral("--"));
    const bool hasArguments = separator >= 0;
    const QStringList arguments = hasArguments ? own.mid(separator + 1) : QStringList();
    if (hasArguments)
        own = own.mid(0, separator);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Tells the mistakes in the supervisor's settings and arguments before they matter."));
    const QCommandLineOption programDirOption(
        QStringLiteral("program-dir"),
        QStringLiteral("Where settings/ and settings-default/ lie; default: beside this program."),
        QStringLiteral("DIR"), QCoreApplication::applicationDirPath());
    const QCommandLineOption boardOption(
        QStringLiteral("board"), QStringLiteral("Also look at the machine that this runs on."));
    const QCommandLineOption explainOption(
        QStringLiteral("explain"),
        QStringLiteral("Tell what the supervisor will do, and from which document."));
    const QCommandLineOption jsonOption(QStringLiteral("json"),
                                        QStringLiteral("Print one JSON object a line."));
    const QCommandLineOption strictOption(QStringLiteral("strict"),
                                          QStringLiteral("End with status 1 after warnings, too."));
    const QCommandLineOption helpOption({QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Show this text and end."));
    const QCommandLineOption versionOption(QStringLiteral("version"),
                                           QStringLiteral("Show the version and end."));
    parser.addOptions({programDirOption, boardOption, explainOption, jsonOption, strictOption,
                       helpOption, versionOption});
    parser.addPositionalArgument(QStringLiteral("FILE"),
                                 QStringLiteral("Check only this document, known by its name."),
                                 QStringLiteral("[FILE...]"));
    parser.addPositionalArgument(QStringLiteral("ARGUMENT"),
                                 QStringLiteral("The supervisor's own arguments."),
                                 QStringLiteral("[-- ARGUMENT...]"));
    if (!parser.parse(own))
        return wrongUsage(parser.errorText());
    if (parser.isSet(helpOption)) {
        std::fputs(parser.helpText().toUtf8().constData(), stdout);
        return finish(NoError);
    }
    if (parser.isSet(versionOption)) {
        printLine(QStringLiteral("pynx-watchdog-check ") + QCoreApplication::applicationVersion());
        return finish(NoError);
    }

    const QString programDir = parser.value(programDirOption);
    const QStringList files = parser.positionalArguments();
    Findings findings;
    for (const QString &file : files)
        findings += checkDocument(file);
    if (files.isEmpty())
        findings += checkSettings(programDir);
    if (hasArguments)
        findings += checkArguments(arguments, programDir);
    const CommandLine options = canBeParsed(arguments, programDir)
        ? parseCommandLine(arguments, programDir)
        : CommandLine();
    if (parser.isSet(boardOption))
        findings += checkBoard(options, programDir);

    const bool json = parser.isSet(jsonOption);
    for (const Finding &finding : std::as_const(findings))
        printLine(json ? finding.toJson() : finding.toText());
    if (parser.isSet(explainOption)) {
        QVector<Explanation> explanations =
            hasArguments ? explain(arguments, programDir) : explainSettings(programDir);
        if (parser.isSet(boardOption))
            explanations += explainBoard(options, programDir);
        for (const Explanation &explanation : std::as_const(explanations))
            printLine(json ? explanation.toJson() : explanation.toText());
    }

    const bool strict = parser.isSet(strictOption);
    const bool failed = std::any_of(findings.cbegin(), findings.cend(), [=](const Finding &found) {
        return strict || found.level == Finding::Level::Error;
    });
    return finish(failed ? ErrorsFound : NoError);
}
