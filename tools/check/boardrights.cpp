// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/boardparts.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Tries it as the supervisor does, and goes back at once.
bool mayHaveRealTimePriority()
{
    constexpr pid_t callingThread = 0;
    const int policy = ::sched_getscheduler(callingThread);
    sched_param usual = {};
    ::sched_getparam(callingThread, &usual);
    sched_param highest = {};
    highest.sched_priority = ::sched_get_priority_max(SCHED_RR);
    if (::sched_setscheduler(callingThread, SCHED_RR, &highest) != 0)
        return false;
    ::sched_setscheduler(callingThread, policy, &usual);
    return true;
}

enum class Switched { AndExecutes, AndFails, Not, Unknown };

// A child of this process takes the account's rights, in the order in which the supervisor's child
// takes them.
Switched tryAccount(const passwd &account, const QByteArray &program)
{
    const pid_t child = ::fork();
    if (child == 0) {
        Switched result = Switched::Not;
        if (::initgroups(account.pw_name, account.pw_gid) == 0
            && ::setregid(account.pw_gid, account.pw_gid) == 0
            && ::setreuid(account.pw_uid, account.pw_uid) == 0) {
            const bool executes = program.isEmpty() || ::access(program.constData(), X_OK) == 0;
            result = executes ? Switched::AndExecutes : Switched::AndFails;
        }
        ::_exit(static_cast<int>(result));
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return Switched::Unknown;
    return static_cast<Switched>(WEXITSTATUS(status));
}

// The application as the supervisor finds it, or an empty text where it is not there.
QString application(const Board &board)
{
    const QString name = board.options.appPath;
    if (!name.contains(QLatin1Char('/')))
        return board.tool(name);
    return QFileInfo(board.file(name)).isFile() ? board.file(name) : QString();
}

} // namespace

Findings checkRights(const Board &board)
{
    if (!board.seenByRoot) {
        return {
            boardWarning("not-root",
                         QStringLiteral("not root: cannot see who holds the watchdog device, nor "
                                        "what the supervisor may do when root starts it"))};
    }
    if (board.options.rotateOnly)
        return {};
    Findings findings;
    if (!mayHaveRealTimePriority()) {
        findings.append(
            boardWarning("real-time",
                         QStringLiteral("real-time priority is not allowed, so the CPU load "
                                        "is sampled late on a board that is busy")));
    }
    if (::prctl(PR_CAPBSET_READ, CAP_SYS_BOOT) != 1) {
        findings.append(
            boardError("reboot-right",
                       QStringLiteral("the right to reboot, CAP_SYS_BOOT, was taken away: "
                                      "no third end and no read-only root reboots the "
                                      "board")));
    }
    return findings;
}

Findings checkAccount(const Board &board)
{
    const QString name = board.options.userName;
    if (name.isEmpty())
        return {};
    const passwd *account = ::getpwnam(name.toUtf8().constData());
    if (account == nullptr) {
        return {boardError("account-unknown",
                           QStringLiteral("there is no account %1: the application runs with the "
                                          "supervisor's own rights")
                               .arg(quoted(name)))};
    }
    if (!board.seenByRoot)
        return {};
    const QString program = application(board);
    switch (tryAccount(*account, QFile::encodeName(program))) {
    case Switched::Not:
        return {boardError("account-rights",
                           QStringLiteral("the supervisor may not switch to the account %1: the "
                                          "application runs with more rights")
                               .arg(quoted(name)))};
    case Switched::AndFails:
        return {boardError("account-application",
                           QStringLiteral("the account %1 may not execute %2, or not reach its "
                                          "directory: the application ends with status 255 at once")
                               .arg(quoted(name), quoted(board.options.appPath)))};
    case Switched::AndExecutes:
    case Switched::Unknown:
        break;
    }
    return {};
}
