// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/**
 * A directory of stand-ins for the platform's tools. As long as the object lives, PATH has only
 * this directory, so that a test cannot start a tool of this machine by name. Create it before
 * anything in the test can start a tool.
 */
class StandInTools
{
public:
    StandInTools();
    ~StandInTools();
    StandInTools(const StandInTools &) = delete;
    StandInTools &operator=(const StandInTools &) = delete;

    /** Adds the tool @p name, which records its call and then runs the shell script @p script. */
    void add(const QString &name, const QString &script = QString());

    /** Removes the tool @p name. */
    void remove(const QString &name);

    /** The calls so far, in order, each as the tool's name and arguments joined with "|". */
    QStringList calls() const;

    /** Forgets the calls so far. */
    void clear();

private:
    QString recordPath() const;

    QTemporaryDir m_directory;
    QByteArray m_path; // the former PATH
};
