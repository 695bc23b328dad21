// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/contentrules.h"

#include "logging/settings.h"
#include "platform/pynx_api.h"
#include "tools/check/schema.h"
#include "tools/check/sizetext.h"

#include <QDir>
#include <QHash>
#include <QSet>

#include <algorithm>
#include <utility>

namespace {

constexpr int maxNameBytes = 15; // the kernel cuts the names of processes

// ---- The watch list.

void checkName(SettingsDocument &document, const JsonPath &path, const QString &name)
{
    const auto tell = [&](auto level, const QString &message) {
        document.add(level(document.valuePlace(path), QStringLiteral("process-name"),
                           quoted(name) + message),
                     path);
    };
    const int bytes = name.toUtf8().size();
    if (bytes > maxNameBytes) {
        tell(error,
             QStringLiteral(" has %1 bytes and is never found; the kernel keeps the first 15 of a "
                            "name")
                 .arg(bytes));
    } else if (name.trimmed() != name) {
        tell(error,
             QStringLiteral(" is never found; the kernel's names are compared without the blanks "
                            "at their ends"));
    } else if (name.startsWith(QLatin1Char('/')) || name.startsWith(QLatin1String("./"))
               || name.startsWith(QLatin1String("../"))) {
        tell(warning,
             QStringLiteral(" is a path; a program has its file's name unless it takes another"));
    }
}

// The arguments of a process are compared one by one.
void checkProcessArguments(SettingsDocument &document, const JsonPath &path,
                           const QStringList &arguments)
{
    for (int i = 0; i < arguments.size() && !document.isFull(); ++i) {
        const QString &argument = arguments.at(i);
        const JsonPath place = path + JsonPath{QString::number(i)};
        if (argument.startsWith(QLatin1Char('-')) && argument.contains(QLatin1String(" -"))) {
            document.add(warning(document.valuePlace(place), QStringLiteral("process-argument"),
                                 quoted(argument)
                                     + QStringLiteral(" is one argument with blanks in it; each "
                                                      "argument stands in quotes of its own")),
                         place);
        }
    }
}

// Entries that can find the same process have the same name, and the arguments of one are among
// those of the other. A list can be long, so an entry is compared only with those that have the
// rarest of its arguments, and of equal entries only the first is compared.
void checkSameProcess(SettingsDocument &document, const JsonPath &list,
                      const QVector<PynxWatchdogWatchProcess> &entries)
{
    const auto placeOf = [&](int number) {
        return document.valuePlace(list + JsonPath{QString::number(number)});
    };
    const auto tell = [&](int number, const QString &message, int other) {
        if (document.isFull())
            return;
        document.add(warning(placeOf(number), QStringLiteral("same-process"),
                             message.arg(QString::number(placeOf(other).line),
                                         QString::number(placeOf(other).column))));
    };
    QVector<QSet<QString>> arguments;
    QHash<QStringList, int> first;
    QVector<int> distinct;
    QHash<QStringList, QVector<int>> having;
    QVector<bool> told(entries.size());
    for (int i = 0; i < entries.size(); ++i) {
        const QString name = entries.at(i).name();
        arguments.append(toStrings(entries.at(i).arguments()).toSet());
        QStringList key = arguments.at(i).toList();
        std::sort(key.begin(), key.end());
        key.prepend(name);
        told[i] = name.isEmpty();
        if (!name.isEmpty() && first.contains(key)) {
            told[i] = true;
            tell(i, QStringLiteral("finds the same process as the entry at %1:%2"),
                 first.value(key));
        }
        if (told.at(i))
            continue;
        first.insert(key, i);
        distinct.append(i);
        having[{name}].append(i);
        for (const QString &argument : arguments.at(i))
            having[{name, argument}].append(i);
    }
    for (const int i : std::as_const(distinct)) {
        const QString name = entries.at(i).name();
        const QVector<int> *candidates = &*having.constFind({name});
        for (const QString &argument : arguments.at(i)) {
            const QVector<int> &with = *having.constFind({name, argument});
            if (with.size() < candidates->size())
                candidates = &with;
        }
        for (const int other : *candidates) {
            const int later = std::max(i, other);
            if (document.isFull() || other == i || told.at(later)
                || !arguments.at(other).contains(arguments.at(i)))
                continue;
            told[later] = true;
            tell(later,
                 QStringLiteral("can find the same process as the entry at %1:%2, because the "
                                "arguments of one are among those of the other"),
                 std::min(i, other));
        }
    }
}

void checkWatchList(SettingsDocument &document)
{
    const QVariantList list = document.content().toList();
    QVector<PynxWatchdogWatchProcess> entries;
    for (const QVariant &element : list) {
        const JsonPath path = document.contentPath() + JsonPath{QString::number(entries.size())};
        entries.append(PynxWatchdogWatchProcess(PynxHash(element.toHash())));
        if (!document.isFull() && !entries.last().name().isEmpty()) {
            checkName(document, path + JsonPath{QStringLiteral("name")}, entries.last().name());
        }
        checkProcessArguments(document, path + JsonPath{QStringLiteral("arguments")},
                              toStrings(entries.last().arguments()));
    }
    checkSameProcess(document, document.contentPath(), entries);
}

// ---- Reports.

bool isBelow(const QString &path, const QString &directory)
{
    const QString clean = QDir::cleanPath(path);
    return clean == directory || clean.startsWith(directory + QLatin1Char('/'));
}

void checkUpload(SettingsDocument &document)
{
    const PynxWatchdogReportsConfig upload(PynxHash(document.content().toHash()));
    const JsonPath pathPath = document.contentPath() + JsonPath{QStringLiteral("uploadPath")};
    const JsonPath prefixPath =
        document.contentPath() + JsonPath{QStringLiteral("uploadFilePrefix")};
    const QString path = upload.uploadPath();
    const QString rule = QStringLiteral("upload-path");
    if (isBelow(path, QStringLiteral("/proc")) || isBelow(path, QStringLiteral("/sys"))) {
        document.add(error(document.valuePlace(pathPath), rule,
                           QStringLiteral("no archive is ever made below ") + quoted(path)),
                     pathPath);
    } else if (!path.isEmpty() && QDir::isRelativePath(path)) {
        document.add(
            warning(document.valuePlace(pathPath), rule,
                    quoted(path) + QStringLiteral(" lies wherever the supervisor is started")),
            pathPath);
    }
    const QString prefix = upload.uploadFilePrefix();
    if (prefix.contains(QLatin1Char('/'))) {
        document.add(error(document.valuePlace(prefixPath), QStringLiteral("upload-prefix"),
                           QStringLiteral("no archive is ever made, because %1 has a \"/\" and a "
                                          "file's name cannot")
                               .arg(quoted(prefix))),
                     prefixPath);
    }
}

void checkReportFile(SettingsDocument &document, const JsonPath &path, const QString &file)
{
    const auto tell = [&](auto level, const QString &message) {
        document.add(
            level(document.valuePlace(path), QStringLiteral("report-file"), quoted(file) + message),
            path);
    };
    if (file.isEmpty())
        tell(error, QStringLiteral(" is left out"));
    else if (QDir::isRelativePath(file))
        tell(warning, QStringLiteral(" is looked for wherever the supervisor is started"));
    else if (file.contains(QLatin1Char('*')) || file.contains(QLatin1Char('?')))
        tell(warning,
             QStringLiteral(" is the name of one file; \"*\" and \"?\" stand for no others"));
    else if (isBelow(file, QStringLiteral("/proc")))
        tell(warning, QStringLiteral(" is packed empty, because the kernel tells no size of it"));
    else if (isBelow(file, QStringLiteral("/sys")))
        tell(error,
             QStringLiteral(
                 " makes every archive fail without the board tools, because the kernel tells "
                 "a wrong size of it"));
}

void checkReportFiles(SettingsDocument &document)
{
    const QStringList files =
        toStrings(PynxSystemLogReportConfig(PynxHash(document.content().toHash())).files());
    const JsonPath list = document.contentPath() + JsonPath{QStringLiteral("files")};
    for (int i = 0; i < files.size() && !document.isFull(); ++i)
        checkReportFile(document, list + JsonPath{QString::number(i)}, files.at(i));
}

// ---- The limits of the log.

void checkLogSizes(SettingsDocument &document)
{
    const QVariantHash sizes = document.content().toHash();
    for (auto size = sizes.constBegin(); size != sizes.constEnd() && !document.isFull(); ++size) {
        if (isComment(size.key()))
            continue;
        const JsonPath path = document.contentPath() + JsonPath{size.key()};
        const Findings findings = checkSizeText(size->toString(), document.valuePlace(path));
        for (const Finding &finding : findings)
            document.add(finding, path);
    }
}

} // namespace

void checkContent(SettingsDocument &document, DocumentType type)
{
    switch (type) {
    case DocumentType::WatchList:
        return checkWatchList(document);
    case DocumentType::AutomaticReportingConf:
        return checkUpload(document);
    case DocumentType::ReportFiles:
        return checkReportFiles(document);
    case DocumentType::LogSizes:
        return checkLogSizes(document);
    case DocumentType::AutomaticReporting:
    case DocumentType::MemoryReporting:
        return;
    }
}
