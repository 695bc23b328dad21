// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/childprocess.h"

#include "tools/guard/output.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/prctl.h>
#include <unistd.h>

namespace {

constexpr int notExecuted = 255; // as the supervisor itself has it

// Variables of another service manager, above the guard, do not reach the application.
void setVariable(const char *name, const std::string &value)
{
    if (value.empty())
        ::unsetenv(name);
    else
        ::setenv(name, value.c_str(), 1);
}

} // namespace

void runApplication(char *const *command, const InheritedSignals &inherited,
                    const std::string &address, const std::string &timeoutUsec, int go, pid_t guard)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    char byte = 0;
    // A guard that died before that call has closed its end of the pipe, or is no longer the
    // parent.
    if (::read(go, &byte, 1) != 1 || ::getppid() != guard)
        ::_exit(notExecuted);

    setVariable("NOTIFY_SOCKET", address);
    setVariable("WATCHDOG_USEC", timeoutUsec);
    setVariable("WATCHDOG_PID", timeoutUsec.empty() ? "" : std::to_string(::getpid()));
    ::sigaction(SIGCHLD, &inherited.childAction, nullptr);
    ::sigprocmask(SIG_SETMASK, &inherited.mask, nullptr);
    ::execvp(*command, command);

    const int error = errno;
    say("cannot execute " + std::string(*command) + ": " + std::strerror(error));
    ::_exit(notExecuted);
}
