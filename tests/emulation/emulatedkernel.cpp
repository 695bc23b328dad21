// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Makes QProcess work under qemu's emulation of a process before its version 8.
//
// QProcess asks the kernel whether it can wait for a process descriptor. If it can, QProcess has
// the kernel make such a descriptor with each child. The emulation passes the question on to the
// kernel but makes no descriptor. QProcess then watches an undefined descriptor and never notices
// the end of its child. Here the question is answered as an older kernel does, and QProcess uses
// another way, which works.
#include <cerrno>
#include <cstdarg>

#include <dlfcn.h>
#include <sys/syscall.h>

namespace {

constexpr long waitForDescriptor = 3; // P_PIDFD, which older headers lack

} // namespace

// Replaces the C library's function for every caller in the test's process.
extern "C" long syscall(long number, ...)
{
    using Syscall = long (*)(long, ...);
    static const auto next = reinterpret_cast<Syscall>(::dlsym(RTLD_NEXT, "syscall"));

    long arguments[6];
    va_list given;
    va_start(given, number);
    for (long &argument : arguments)
        argument = va_arg(given, long);
    va_end(given);

    if (number == SYS_waitid && arguments[0] == waitForDescriptor) {
        errno = EINVAL;
        return -1;
    }
    return next(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                arguments[5]);
}
