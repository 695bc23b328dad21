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

// Used where the system names no size (kept-behaviour.md: account-buffer).
constexpr long fallbackBufferSize = 8196;

constexpr int outputPipeBytes = 256 * 1024;

// ---- What runs in the child, between fork and exec.
//
// The child is a copy of the main thread only. A lock that another thread held at the fork is never
// released in it. Memory may be allocated all the same, also by QDir: Qt starts a class derived
// from QProcess by fork(), and fork() of the C library leaves the locks of the allocator free in
// the child. (Qt starts a plain QProcess by clone(), of which the C library knows nothing.)
// Accounts and groups may be looked up too, because no other thread does so. Everything else is
// system calls. Messages go out by write(), because the child also has a copy of the buffer of
// stderr.
//
// Until the exec, a signal still runs the supervisor's handlers: see terminationsignals.cpp.

void writeRaw(const char *message)
{
    // A message that cannot be written to the application's standard error has nowhere else to go.
    const ssize_t written = ::write(STDERR_FILENO, message, std::strlen(message));
    Q_UNUSED(written)
}

// Standard output and error are the pipes to the supervisor. The kernel gives them 64 KiB. With
// this size, an application that prints without pause would wait for the supervisor, and wake it,
// four times as often. If the kernel refuses the larger size, the pipe keeps its own.
void enlargeOutputPipes()
{
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
        ::fcntl(descriptor, F_SETPIPE_SZ, outputPipeBytes);
}

void closeInheritedDescriptors()
{
    // The list is completed first, because listing needs a descriptor of its own, which is closed
    // at the end.
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
    // The groups are changed before the user, because only the old user may change them.
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
    // If the switch fails, the start goes on. A board is of more use with its application under the
    // supervisor's account than without it, and the message is in the application's log
    // (kept-behaviour.md: account-failure).
    if (m_passwd)
        switchTo(*m_passwd);
}
