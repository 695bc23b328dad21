// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "logging/outputpipes.h"

#include <QProcess>
#include <QSocketNotifier>

#include <fcntl.h>

namespace {

constexpr int pipeBytes = 256 * 1024;

} // namespace

// The process names its pipes to nobody, but the notifiers that watch them are its children. That
// of the pipe through which it learns of the application's end is among them and takes no harm.
void enlargeOutputPipes(const QProcess *process)
{
    const auto notifiers =
        process->findChildren<QSocketNotifier *>(QString(), Qt::FindDirectChildrenOnly);
    for (const QSocketNotifier *notifier : notifiers) {
        // A notifier that has done its service may name a descriptor that is another's by now.
        if (!notifier->isEnabled() || notifier->type() != QSocketNotifier::Read)
            continue;
        const int descriptor = static_cast<int>(notifier->socket());
        const int size = ::fcntl(descriptor, F_GETPIPE_SZ);
        if (size != -1 && size < pipeBytes)
            ::fcntl(descriptor, F_SETPIPE_SZ, pipeBytes);
    }
}
