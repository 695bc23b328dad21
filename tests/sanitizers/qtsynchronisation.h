// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QCoreApplication>

#ifdef __SANITIZE_THREAD__

/** An application object that tells ThreadSanitizer about the order of its event queues. */
class SynchronisedApplication : public QCoreApplication
{
public:
    using QCoreApplication::QCoreApplication;
    bool notify(QObject *receiver, QEvent *event) override;
};

#else

using SynchronisedApplication = QCoreApplication;

#endif
