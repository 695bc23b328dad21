// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/output.h"

#include <array>
#include <csignal>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int longestWaitMs = 1000;
constexpr int pauseMs = 10;

// A reader that no longer reads must not hold up the guard, so what cannot be written within a
// second is lost. A pipe that can be written to takes a short text whole.
void write(int descriptor, const std::string &text)
{
    pollfd room = {descriptor, POLLOUT, 0};
    if (::poll(&room, 1, longestWaitMs) != 1)
        return;
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    static_cast<void>(written);
}

} // namespace

void occupyStandardChannels()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) == -1)
            ::open("/dev/null", O_RDWR | O_CLOEXEC);
    }
}

void say(const std::string &text)
{
    write(STDERR_FILENO, "guard: " + text + '\n');
}

void print(const std::string &text)
{
    write(STDOUT_FILENO, text);
}

void waitUntilRead()
{
    struct stat file = {};
    if (::fstat(STDOUT_FILENO, &file) != 0 || !S_ISFIFO(file.st_mode))
        return;
    int unread = 0;
    for (int waited = 0; waited < longestWaitMs; waited += pauseMs) {
        if (::ioctl(STDOUT_FILENO, FIONREAD, &unread) != 0 || unread == 0)
            return;
        const timespec pause = {0, pauseMs * 1000000L};
        ::nanosleep(&pause, nullptr);
    }
}

std::string signalName(int signal)
{
    static constexpr std::array names = {
        "0",    "HUP",  "INT",  "QUIT", "ILL",    "TRAP",   "ABRT",  "BUS",  "FPE",  "KILL", "USR1",
        "SEGV", "USR2", "PIPE", "ALRM", "TERM",   "STKFLT", "CHLD",  "CONT", "STOP", "TSTP", "TTIN",
        "TTOU", "URG",  "XCPU", "XFSZ", "VTALRM", "PROF",   "WINCH", "IO",   "PWR",  "SYS"};
    static_assert(names.size() == SIGSYS + 1);
    if (signal > 0 && signal < static_cast<int>(names.size()))
        return std::string("SIG") + names[static_cast<std::size_t>(signal)];
    return "SIGRTMIN+" + std::to_string(signal - SIGRTMIN);
}
