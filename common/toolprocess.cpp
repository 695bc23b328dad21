// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "common/toolprocess.h"

void ToolProcess::discardOutput()
{
    setStandardOutputFile(nullDevice());
    setStandardErrorFile(nullDevice());
}

void ToolProcess::run(const QString &program, const QStringList &arguments)
{
    constexpr int withoutLimit = -1;
    ToolProcess tool;
    tool.setProcessChannelMode(ForwardedChannels);
    tool.start(program, arguments);
    tool.waitForFinished(withoutLimit);
}
