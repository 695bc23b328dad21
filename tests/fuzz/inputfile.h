// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

/** A file in memory, for readers that take a path. It stays open until the process ends. */
class InputFile
{
public:
    InputFile();

    /** A path that opens the file in this process and its children. */
    QString path() const;

    void write(const QByteArray &content) const;

private:
    int m_descriptor;
};
