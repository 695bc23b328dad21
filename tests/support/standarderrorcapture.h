// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QTemporaryFile>

/**
 * Takes in what this process, and every command it starts meanwhile, writes to standard error for
 * as long as the object lives. For code that needs the event loop of the test; see runInChild() for
 * code that does not. Nothing that goes through Qt's messages is among it: the test logs those.
 */
class StandardErrorCapture
{
public:
    StandardErrorCapture();
    ~StandardErrorCapture();
    StandardErrorCapture(const StandardErrorCapture &) = delete;
    StandardErrorCapture &operator=(const StandardErrorCapture &) = delete;

    /** What was written so far. */
    QByteArray text() const;

private:
    QTemporaryFile m_file;
    int m_original;
};
