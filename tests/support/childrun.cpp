// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"

#include <QFile>
#include <QTemporaryFile>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace {

QByteArray contentOf(QTemporaryFile &file)
{
    QFile reader(file.fileName());
    return reader.open(QIODevice::ReadOnly) ? reader.readAll() : QByteArray();
}

} // namespace

bool ChildResult::failedAssertion(const char *expression) const
{
    return signal == SIGABRT && standardError.contains(QByteArray("ASSERT: \"") + expression + '"');
}

ChildResult runInChild(const std::function<void()> &code)
{
    // Files rather than pipes: the child can write any amount without a reader.
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
        qInstallMessageHandler(nullptr); // the test's own handler would report a failed test
        code();
        std::fflush(stdout);
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);

    ChildResult result;
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    else
        result.signal = WTERMSIG(status);
    result.standardOutput = contentOf(output);
    result.standardError = contentOf(error);
    return result;
}
