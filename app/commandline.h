// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

/** What the command line asks for; a plain value. */
struct CommandLine
{
    QString logFileName; ///< empty: no log file
    quint32 logSize = 0; ///< limit in bytes; 0: no log file
    bool logTime = false;
    bool rotateOnly = false;
    bool singleRun = false;
    QString userName; ///< empty: the supervisor's own user
    QString appPath;  ///< empty: no application was named
    QStringList appArgs;
};

/**
 * Reads @p arguments, which do not contain the program's own name.
 *
 * Everything after the value of "--app" belongs to the application. Unknown words are ignored, and
 * so is an option at the end of the list without its value.
 *
 * The value of "--logfileSizeConf" is looked up in the settings. An empty value of "--logfileSize"
 * ends the program with a failed assertion.
 */
CommandLine parseCommandLine(const QStringList &arguments);

/** Writes the usage text to standard error. */
void printUsage();
