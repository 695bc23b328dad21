// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QProcess>

#include <memory>

#include <pwd.h>

/**
 * The process that runs the application. It runs under another user account if one was looked up.
 * It has no open descriptors but standard input, output and error. Its output pipes hold 256 KiB
 * each.
 *
 * Closing the other descriptors also closes the pipe by which Qt learns of a failed exec. A program
 * that cannot be executed therefore counts as started and then ends with exit code 255
 * (kept-behaviour.md: missing-application).
 *
 * Main thread only.
 */
class PynxProcess : public QProcess
{
public:
    PynxProcess() = default;

    /**
     * Looks up the account @p userName, under which the application is to run. It replaces any
     * earlier account. Returns false, after a message on standard error, when the account does not
     * exist or cannot be read. The application then runs as the supervisor's own user.
     */
    bool lookupUser(const QString &userName);

protected:
    /** Runs in the child, between fork and exec. */
    void setupChildProcess() override;

private:
    std::unique_ptr<passwd> m_passwd; // null: no switch of user
    QByteArray m_passwdBuffer;        // the texts that m_passwd points into
};
