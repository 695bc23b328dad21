// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/explanation.h"

QString Explanation::toText() const
{
    return setting;
}
QString Explanation::toJson() const
{
    return setting;
}
QVector<Explanation> explain(const QStringList &, const QString &)
{
    return {};
}
