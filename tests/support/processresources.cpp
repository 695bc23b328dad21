// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "processresources.h"

#include <QAbstractEventDispatcher>
#include <QDir>

#include <algorithm>

#include <malloc.h>
#include <sys/wait.h>

int openDescriptors()
{
    const QDir directory(QStringLiteral("/proc/self/fd"));
    // One of them is that of the listing itself.
    return directory.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size() - 1;
}

bool hasChildren()
{
    siginfo_t info = {};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

int pendingSingleShots()
{
    // Qt keeps each as an object of its own below the thread's event dispatcher.
    const QObjectList objects = QAbstractEventDispatcher::instance()->children();
    return static_cast<int>(std::count_if(objects.begin(), objects.end(), [](QObject *object) {
        return object->inherits("QSingleShotTimer");
    }));
}

qint64 heapInUse()
{
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<qint64>(info.uordblks) + static_cast<qint64>(info.hblkhd);
}
