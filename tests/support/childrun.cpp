// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"

#include "testfiles.h"

#include <QTemporaryFile>

#include <cstdio>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef WATCHDOG_COVERAGE
extern "C" void __gcov_dump(); // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
#endif

namespace {

// Ends the child without the exit handlers, which belong to the test. A coverage report still gets
// what the child has run.
[[noreturn]] void endChild()
{
    std::fflush(stdout);
#ifdef WATCHDOG_COVERAGE
    __gcov_dump();
#endif
    ::_exit(0);
}

} // namespace

bool ChildResult::failedAssertion(const char *expression) const
{
    return signal == SIGABRT && standardError.contains(QByteArray("ASSERT: \"") + expression + '"');
}

ChildResult runInChild(const std::function<void()> &code)
{
    // Into files, not pipes, the child can write any amount without a reader.
    QTemporaryFile output;
    QTemporaryFile error;
    if (!output.open() || !error.open())
        qFatal("no temporary file for a child's output");
    std::fflush(stdout);
    std::fflush(stderr);

    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(output.handle(), STDOUT_FILENO);
        ::dup2(error.handle(), STDERR_FILENO);
        const rlimit noCore = {0, 0};
        ::setrlimit(RLIMIT_CORE, &noCore);
        qInstallMessageHandler(nullptr); // the test's handler would report a failed test
        code();
        endChild();
    }
    int status = 0;
    ::waitpid(child, &status, 0);

    ChildResult result;
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    else
        result.signal = WTERMSIG(status);
    result.standardOutput = readFile(output.fileName());
    result.standardError = readFile(error.fileName());
    return result;
}
