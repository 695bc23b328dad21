// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/boardparts.h"
#include "tools/check/guardarguments.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

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
            const bool executes = ::access(program.constData(), X_OK) == 0;
            result = executes ? Switched::AndExecutes : Switched::AndFails;
        }
        ::_exit(static_cast<int>(result));
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return Switched::Unknown;
    return static_cast<Switched>(WEXITSTATUS(status));
}

// The application as the supervisor finds it; empty: it is not in its PATH.
QString applicationFile(const Board &board, const QString &name)
{
    return name.contains(QLatin1Char('/')) ? board.file(name) : board.tool(name);
}

// Why it cannot be executed, as the end of a sentence; empty: it can. Of rights, only root can
// tell.
QString obstacle(const Board &board, const QString &application)
{
    if (application.isEmpty())
        return QStringLiteral("is not in the supervisor's PATH");
    const QByteArray file = QFile::encodeName(application);
    if (::access(file.constData(), F_OK) != 0)
        return board.seenByRoot || errno == ENOENT ? QStringLiteral("is missing") : QString();
    const bool mayBe = !board.seenByRoot || ::access(file.constData(), X_OK) == 0;
    return mayBe && QFileInfo(application).isFile() ? QString()
                                                    : QStringLiteral("cannot be executed");
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

Findings checkApplication(const Board &board)
{
    const CommandLine &options = board.options;
    const auto guard = readGuardArguments(QStringList{options.appPath} + options.appArgs);
    Findings findings;
    for (const QString &name : {options.appPath, guard ? guard->application : QString()}) {
        const QString why = name.isEmpty() ? QString() // the check of the arguments tells
                                           : obstacle(board, applicationFile(board, name));
        if (why.isEmpty())
            continue;
        findings.append(
            boardError("application",
                       QStringLiteral("%1 %2, which counts as an application that ends with status "
                                      "255 at once")
                           .arg(quoted(name), why)));
    }
    const QString stacks = guard ? QString::fromStdString(guard->options.stacks) : QString();
    if (!stacks.isEmpty() && !QFileInfo(board.file(stacks)).isDir()) {
        findings.append(boardWarning("guard-stacks",
                                     QStringLiteral("there is no directory %1 for the guard's "
                                                    "stacks, so none are written")
                                         .arg(quoted(stacks))));
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
        return {boardError("account",
                           QStringLiteral("there is no account %1: the application runs with the "
                                          "supervisor's own rights")
                               .arg(quoted(name)))};
    }
    if (account->pw_uid == 0) {
        return {boardWarning("account",
                             QStringLiteral("the account %1 has all rights, as the supervisor has")
                                 .arg(quoted(name)))};
    }
    if (!board.seenByRoot)
        return {};
    const QString application = applicationFile(board, board.options.appPath);
    const bool isThere = obstacle(board, application).isEmpty();
    switch (tryAccount(*account, QFile::encodeName(isThere ? application : QStringLiteral("/")))) {
    case Switched::Not:
        return {boardError("account-rights",
                           QStringLiteral("the supervisor may not switch to the account %1: the "
                                          "application runs with more rights")
                               .arg(quoted(name)))};
    case Switched::AndFails:
        return {boardError("account-application",
                           QStringLiteral("the account %1 may not execute %2 or not reach its "
                                          "directory: the application ends with status 255 at once")
                               .arg(quoted(name), quoted(board.options.appPath)))};
    case Switched::AndExecutes:
    case Switched::Unknown:
        break;
    }
    return {};
}
