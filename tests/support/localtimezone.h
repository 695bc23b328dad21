// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

/** As long as the object lives, this process has the local time of another zone. */
class LocalTimeZone
{
public:
    /** @p zone as in the environment variable TZ: "<+05>-05" is five hours ahead of UTC. */
    explicit LocalTimeZone(const QByteArray &zone);
    ~LocalTimeZone();
    LocalTimeZone(const LocalTimeZone &) = delete;
    LocalTimeZone &operator=(const LocalTimeZone &) = delete;

private:
    QByteArray m_before; // null: TZ was not set
};
