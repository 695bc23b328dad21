// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QCoreApplication>
#include <QString>
#include <QStringList>
#include <QVector>

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

/** One word of the command line, together with its value if it has one; a plain value. */
struct CommandLineWord
{
    enum class Kind { Switch, Option, OptionWithoutValue, Unknown };

    Kind kind;
    int index; ///< its place among the arguments, from 0
    QString text;
    QString value; ///< of an option
};

/**
 * Divides @p arguments, which do not contain the program's own name, into options with their values
 * and unknown words. The last word is "--app" if that has a value, since everything after this
 * value belongs to the application.
 */
QVector<CommandLineWord> splitCommandLine(const QStringList &arguments);

/**
 * Reads @p arguments, which do not contain the program's own name.
 *
 * Everything after the value of "--app" belongs to the application. Unknown words are ignored, and
 * so is an option at the end of the list without its value.
 *
 * The value of "--logfileSizeConf" is looked up in the settings, which are found in @p programDir.
 * An empty value of "--logfileSize" ends the program with a failed assertion.
 */
CommandLine parseCommandLine(const QStringList &arguments,
                             const QString &programDir = QCoreApplication::applicationDirPath());

/** Writes the usage text to standard error. */
void printUsage();
