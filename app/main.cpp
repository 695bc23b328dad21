// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/allocator.h"
#include "app/watchdog.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    keepFreedHeap();
    QCoreApplication application(argc, argv);
    theWatchdog = new Watchdog(nullptr); // never deleted: it lives until the process ends
    const int status = theWatchdog->init(QCoreApplication::arguments());
    return status == 0 ? QCoreApplication::exec() : status;
}
