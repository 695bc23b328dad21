// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QProcess>

#include <memory>

#include <pwd.h>

/**
 * The process that runs the application: under another user account where one was looked up, and
 * without any descriptor of the supervisor's but standard input, output and error. Its output pipes
 * have room for 256 KiB each.
 *
 * Closing every other descriptor also closes the pipe on which a failed exec would be told to the
 * supervisor. A program that cannot be executed therefore counts as started and then ends with exit
 * code 255, as one that ends at once would: on a device both lead to the same recovery.
 *
 * Main thread only.
 */
class PynxProcess : public QProcess
{
public:
    PynxProcess() = default;

    /**
     * Looks up the account @p userName to run the application as, in place of any earlier one.
     * Returns false, after a message on standard error, when there is no such account or it cannot
     * be read; the application then runs as the supervisor's own user.
     */
    bool lookupUser(const QString &userName);

protected:
    /** Runs in the child, between fork and exec. */
    void setupChildProcess() override;

private:
    std::unique_ptr<passwd> m_passwd; // null: no switch of user
    QByteArray m_passwdBuffer;        // the texts that m_passwd points into
};
