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

// The size for systems that name none. 8196, not 8192: the figure this program has always used.
constexpr long fallbackBufferSize = 8196;

constexpr int outputPipeBytes = 256 * 1024;

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
    // A switch that fails does not stop the start: the application runs as whoever it is by then.
    if (m_passwd)
        switchTo(*m_passwd);
}
