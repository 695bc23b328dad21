// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/pynxprocess.h"

#include "common/errorline.h"

#include <QDir>
#include <QVector>

#include <cstring>
#include <utility>

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

namespace {

// Where the system names no size (kept-behaviour.md: account-buffer).
constexpr long fallbackBufferSize = 8196;

constexpr int outputPipeBytes = 256 * 1024;

// ---- What runs in the child, between fork and exec.
//
// The child is a copy of the main thread alone: a lock that another thread held at the fork is
// never released in it. Memory may be allocated all the same, also by QDir. Qt starts a class
// derived from QProcess by fork(), and there the C library sees to it that the allocator's locks
// are free in the child. (A plain QProcess is started by clone(), of which the C library knows
// nothing.) Accounts and groups are looked up by no other thread. All else is system calls;
// messages are written by write(), because the buffer of stderr is a copy too.
//
// A signal that comes meanwhile finds the supervisor's handlers: see terminationsignals.cpp.

void writeRaw(const char *message)
{
    // A message that cannot be written to the application's standard error has nowhere else to go.
    const ssize_t written = ::write(STDERR_FILENO, message, std::strlen(message));
    Q_UNUSED(written)
}

// Standard output and error are the pipes to the supervisor. The kernel's 64 KiB would make an
// application that prints without pause wait for the supervisor, and wake it, four times as often.
// Where the kernel refuses, the pipe works as it is.
void enlargeOutputPipes()
{
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
        ::fcntl(descriptor, F_SETPIPE_SZ, outputPipeBytes);
}

void closeInheritedDescriptors()
{
    // Collected first: the listing itself holds a descriptor, which is closed when it is complete.
    QVector<int> descriptors;
    const QStringList entries = QDir(QStringLiteral("/proc/self/fd")).entryList();
    for (const QString &entry : entries) {
        bool ok = false;
        const int descriptor = entry.toInt(&ok, 10);
        if (ok)
            descriptors.append(descriptor);
    }
    for (const int descriptor : std::as_const(descriptors)) {
        if (descriptor > STDERR_FILENO)
            ::close(descriptor);
    }
}

void switchTo(const passwd &account)
{
    // Groups before the user: without the old user id the group calls would no longer be allowed.
    if (::initgroups(account.pw_name, account.pw_gid) != 0)
        writeRaw("Cannot initialize supplementary groups\n");
    if (::setregid(account.pw_gid, account.pw_gid) != 0
        || ::setreuid(account.pw_uid, account.pw_uid) != 0)
        writeRaw("Cannot change user/group\n");
}

} // namespace

bool PynxProcess::lookupUser(const QString &userName)
{
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    if (size == -1)
        size = fallbackBufferSize;
    m_passwdBuffer = QByteArray(static_cast<int>(size), '\0');
    m_passwd = std::make_unique<passwd>();

    passwd *result = nullptr;
    const int error = ::getpwnam_r(userName.toUtf8().constData(), m_passwd.get(),
                                   m_passwdBuffer.data(), static_cast<std::size_t>(size), &result);
    if (error == 0 && result != nullptr)
        return true;
    writeErrorLine(QStringLiteral("Failed to get info about user: ") + userName);
    m_passwd.reset();
    return false;
}

void PynxProcess::setupChildProcess()
{
    QProcess::setupChildProcess();
    enlargeOutputPipes();
    closeInheritedDescriptors();
    // A switch that fails does not stop the start. A board is of more use with its application
    // under another account than without it, and the application's log tells of it.
    // (kept-behaviour.md: account-failure)
    if (m_passwd)
        switchTo(*m_passwd);
}
