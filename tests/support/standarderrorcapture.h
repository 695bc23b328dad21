// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QTemporaryFile>

/**
 * Captures what this process and the commands that it starts write to standard error, as long as
 * the object lives. It is for code that needs the event loop of the test; for other code there is
 * runInChild(). It does not capture Qt's messages, which go to the test's log.
 */
class StandardErrorCapture
{
public:
    StandardErrorCapture();
    ~StandardErrorCapture();
    StandardErrorCapture(const StandardErrorCapture &) = delete;
    StandardErrorCapture &operator=(const StandardErrorCapture &) = delete;

    /** The text so far. */
    QByteArray text() const;

private:
    QTemporaryFile m_file;
    int m_original;
};
