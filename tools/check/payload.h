// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariant>

/** What is larger is not read. A watch list of a thousand processes has less, also if indented. */
constexpr int maxDocumentBytes = 512 * 1024;

/** The content of a settings document as the supervisor has it; a plain value. */
struct Payload
{
    QVariant value; ///< null: there is none
    QString source; ///< the path of the document that counts; "default": none does

    /**
     * Whether it could be read: a pipe would be waited for, a huge file fill the memory, and what
     * the supervisor may read need not be open to this account.
     */
    bool isKnown = true;
};

/** Reads the payload of the settings document @p name with the supervisor's own functions. */
Payload readPayload(const QString &name, const QString &programDir);

/** Whether this account may not reach or read what @p path names, which the supervisor may. */
bool isClosed(const QString &path);
