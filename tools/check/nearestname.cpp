// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/nearestname.h"

#include "tools/check/findings.h"

#include <QVector>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int longest = 200; // a longer name is near to none, and the table below stays small

// The optimal string alignment distance.
int distance(const QString &from, const QString &to)
{
    QVector<QVector<int>> table(from.size() + 1, QVector<int>(to.size() + 1));
    for (int i = 0; i <= from.size(); ++i) {
        for (int j = 0; j <= to.size(); ++j) {
            if (i == 0 || j == 0) {
                table[i][j] = i + j;
                continue;
            }
            const bool same = from.at(i - 1) == to.at(j - 1);
            table[i][j] = std::min(
                {table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && from.at(i - 1) == to.at(j - 2) && from.at(i - 2) == to.at(j - 1))
                table[i][j] = std::min(table[i][j], table[i - 2][j - 2] + 1);
        }
    }
    return table[from.size()][to.size()];
}

} // namespace

QString didYouMean(const QString &name, const QStringList &known)
{
    if (name.size() > longest)
        return QString();
    QString nearest;
    int least = std::max(1, name.size() / 3) + 1;
    for (const QString &candidate : known) {
        if (std::abs(candidate.size() - name.size()) >= least)
            continue; // at least so many characters are to be inserted or removed
        const int found = distance(name.toLower(), candidate.toLower());
        if (found < least) {
            least = found;
            nearest = candidate;
        }
    }
    return nearest.isNull() ? QString() : QStringLiteral("; did you mean %1?").arg(quoted(nearest));
}
