// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/commandline.h"

#include "common/errorline.h"
#include "logging/settings.h"

// An unknown word is ignored (kept-behaviour.md: unknown-words).
CommandLine parseCommandLine(const QStringList &arguments)
{
    CommandLine result;
    QStringList rest = arguments;
    while (!rest.isEmpty()) {
        const QString option = rest.takeFirst();
        if (option == QLatin1String("--logTime")) {
            result.logTime = true;
        } else if (option == QLatin1String("--rotateOnly")) {
            result.rotateOnly = true;
        } else if (option == QLatin1String("--singleRun")) {
            result.singleRun = true;
        } else if (rest.isEmpty()) {
            break; // an unknown word, or an option whose value is missing
        } else if (option == QLatin1String("--logfileName")) {
            result.logFileName = rest.takeFirst();
        } else if (option == QLatin1String("--logfileSize")) {
            result.logSize = static_cast<quint32>(parseSize(rest.takeFirst()));
        } else if (option == QLatin1String("--logfileSizeConf")) {
            result.logSize = logFileSizeFromConf(rest.takeFirst());
        } else if (option == QLatin1String("--user")) {
            result.userName = rest.takeFirst();
        } else if (option == QLatin1String("--app")) {
            result.appPath = rest.takeFirst();
            result.appArgs = rest;
            break;
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
