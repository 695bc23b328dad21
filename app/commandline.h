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
 * Reads @p arguments, which do not hold the program's own name.
 *
 * The scan goes from the front to the value of "--app"; all that follows belongs to the
 * application. Unknown elements are ignored, and so is an option that lacks its value at the end of
 * the list.
 * "--logfileSizeConf" looks its size up in the settings; an empty value of "--logfileSize" ends the
 * program with a failed assertion.
 */
CommandLine parseCommandLine(const QStringList &arguments);

/** Writes the usage text to standard error. */
void printUsage();
