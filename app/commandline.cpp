// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/commandline.h"

#include "common/errorline.h"
#include "logging/settings.h"

QVector<CommandLineWord> splitCommandLine(const QStringList &arguments)
{
    static const QStringList switches = {
        QStringLiteral("--logTime"),
        QStringLiteral("--rotateOnly"),
        QStringLiteral("--singleRun"),
    };
    static const QStringList options = {
        QStringLiteral("--logfileName"),
        QStringLiteral("--logfileSize"),
        QStringLiteral("--logfileSizeConf"),
        QStringLiteral("--user"),
        QStringLiteral("--app"),
    };
    using Kind = CommandLineWord::Kind;
    QVector<CommandLineWord> words;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &text = arguments.at(i);
        const int index = i;
        if (switches.contains(text)) {
            words.append({Kind::Switch, index, text, QString()});
        } else if (!options.contains(text)) {
            words.append({Kind::Unknown, index, text, QString()});
        } else if (i + 1 == arguments.size()) {
            words.append({Kind::OptionWithoutValue, index, text, QString()});
        } else {
            words.append({Kind::Option, index, text, arguments.at(++i)});
            if (text == QLatin1String("--app"))
                break;
        }
    }
    return words;
}

// An unknown word is ignored, and so is an option without a value
// (kept-behaviour.md: unknown-words).
CommandLine parseCommandLine(const QStringList &arguments, const QString &programDir)
{
    using Kind = CommandLineWord::Kind;
    CommandLine result;
    const QVector<CommandLineWord> words = splitCommandLine(arguments);
    for (const CommandLineWord &word : words) {
        if (word.kind != Kind::Switch && word.kind != Kind::Option)
            continue;
        if (word.text == QLatin1String("--logTime")) {
            result.logTime = true;
        } else if (word.text == QLatin1String("--rotateOnly")) {
            result.rotateOnly = true;
        } else if (word.text == QLatin1String("--singleRun")) {
            result.singleRun = true;
        } else if (word.text == QLatin1String("--logfileName")) {
            result.logFileName = word.value;
        } else if (word.text == QLatin1String("--logfileSize")) {
            result.logSize = static_cast<quint32>(parseSize(word.value));
        } else if (word.text == QLatin1String("--logfileSizeConf")) {
            result.logSize = logFileSizeFromConf(word.value, programDir);
        } else if (word.text == QLatin1String("--user")) {
            result.userName = word.value;
        } else if (word.text == QLatin1String("--app")) {
            result.appPath = word.value;
            result.appArgs = arguments.mid(word.index + 2);
        }
    }
    return result;
}

void printUsage()
{
    static const char *const lines[] = {
        "Usage: watchdog executable [args] --app <app> [appargs]",
        "args:",
        "\t--logfileName absolute or relative path where the logs will be stored",
        "\t--logfileSize maximal size of log file, size can be postfixed with 'k' for kB or 'M' for MB",
        "\t--logfileSizeConf name of the configuration read from settings",
        "\t--logTime add current time in front of new line, if time in seconds changed",
        "\t--rotateOnly do not handle hw watchdog, system usage and reports",
        "\t--singleRun do not restart app on finish",
        "\t--user run application as the specified user",
        "app: name or path to executed application",
        "appargs: arguments for executed application",
    };
    for (const char *line : lines)
        writeErrorLine(QLatin1String(line));
}
