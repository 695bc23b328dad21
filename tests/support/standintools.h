// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/**
 * A search path of stand-ins for the platform's tools: as long as the object lives, PATH holds its
 * directory alone, so that no test can reach a tool of this machine by name. Create one before
 * anything in the test can start a tool.
 */
class StandInTools
{
public:
    StandInTools();
    ~StandInTools();
    StandInTools(const StandInTools &) = delete;
    StandInTools &operator=(const StandInTools &) = delete;

    /** Adds the tool @p name, which records its call and then runs @p script (sh). */
    void add(const QString &name, const QString &script = QString());

    /** Takes the tool @p name away again. */
    void remove(const QString &name);

    /** The calls so far, in order, each as the tool's name and its arguments joined with "|". */
    QStringList calls() const;

    /** Forgets the calls so far. */
    void clear();

private:
    QString recordPath() const;

    QTemporaryDir m_directory;
    QByteArray m_path; // as it was
};
