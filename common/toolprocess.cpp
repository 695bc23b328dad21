// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "common/toolprocess.h"

#include "common/terminationsignals.h"

void ToolProcess::discardOutput()
{
    setStandardOutputFile(nullDevice());
    setStandardErrorFile(nullDevice());
}

bool ToolProcess::waitForEnd(int timeoutMs)
{
    const TerminationWindow window;
    return waitForFinished(timeoutMs);
}

void ToolProcess::run(const QString &program, const QStringList &arguments)
{
    constexpr int withoutLimit = -1;
    ToolProcess tool;
    tool.setProcessChannelMode(ForwardedChannels);
    tool.start(program, arguments);
    tool.waitForEnd(withoutLimit);
}
