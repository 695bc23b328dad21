// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/settingsdocument.h"

#include "logging/settings.h"
#include "platform/pynx_api.h"
#include "tools/check/nearestname.h"
#include "tools/check/payload.h"
#include "tools/check/schema.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTextCodec>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/stat.h>

namespace {

constexpr int maxValues = 20000;
constexpr int maxFindings = 1000;

// The beginning of UTF-16 and UTF-32, which the supervisor recognises.
bool isWideText(const QByteArray &bytes)
{
    return bytes.startsWith("\xff\xfe") || bytes.startsWith("\xfe\xff")
        || bytes.startsWith(QByteArray("\0\0\xfe\xff", 4));
}

bool hasInvalidUtf8(const QByteArray &bytes)
{
    QTextCodec::ConverterState state;
    QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars > 0 || state.remainingChars > 0;
}

// Where @p json has a NUL, as a byte or as an escape; -1: nowhere.
int findNul(QByteArray json)
{
    json.replace("\\\\", "  "); // so that each backslash that is left begins an escape
    const int byte = json.indexOf('\0');
    return byte >= 0 ? byte : json.indexOf("\\u0000");
}

// What is not JSON at @p offset, where it is one of the things that people write by mistake, and
// else what the parser has @p said.
QString mistakeAt(const QByteArray &text, int offset, const QString &said)
{
    const QByteArray before = text.left(offset).trimmed();
    const char found = offset < text.size() ? text.at(offset) : '\0';
    if ((found == ']' || found == '}') && before.endsWith(','))
        return QStringLiteral("the last element must have no comma behind it");
    if (found == '/' || found == '#')
        return QStringLiteral("there are no comments");
    return found == '\'' ? QStringLiteral("a text stands in double quotes") : said;
}

} // namespace

SettingsDocument::SettingsDocument(QString path) : m_path(std::move(path))
{
    QVariant tree;
    if (!isReadable() || !readText() || !parse(tree))
        return;
    findOverridden();
    unwrap(tree);
}

bool SettingsDocument::isReadable()
{
    const Place place = {m_path};
    if (isClosed(m_path)) {
        add(error(place, QStringLiteral("unreadable"),
                  QStringLiteral("cannot be read by this account and was not checked")));
        return false;
    }
    struct stat status = {};
    if (::stat(QFile::encodeName(m_path).constData(), &status) != 0) {
        refuse(place, QStringLiteral("unreadable"),
               QStringLiteral("cannot be read (%1)").arg(qt_error_string(errno)));
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        refuse(place, QStringLiteral("not-a-file"), QStringLiteral("is a directory"));
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        add(error(place, QStringLiteral("not-a-file"),
                  QStringLiteral("is no regular file; the supervisor may wait for its end for "
                                 "ever")));
        return false;
    }
    if (status.st_size > maxDocumentBytes) {
        add(error(place, QStringLiteral("too-large"),
                  QStringLiteral("has %1 bytes and was not checked; settings have at most %2")
                      .arg(QString::number(status.st_size), QString::number(maxDocumentBytes))));
        return false;
    }
    // Some files of the kernel have no size, and a read of them waits.
    if (status.st_size == 0) {
        refuse(place, QStringLiteral("not-json"), QStringLiteral("is empty"));
        return false;
    }
    return true;
}

bool SettingsDocument::readText()
{
    const Place place = {m_path};
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        refuse(place, QStringLiteral("unreadable"),
               QStringLiteral("cannot be read (%1)").arg(file.errorString()));
        return false;
    }
    const QByteArray bytes = file.read(maxDocumentBytes);
    m_text = readSettingsText(m_path).toUtf8();
    if (m_text.count(',') > maxValues) {
        add(error(place, QStringLiteral("too-large"),
                  QStringLiteral("has more than %1 values and was not checked").arg(maxValues)));
        return false;
    }
    m_lines = {0};
    for (int i = 0; i < m_text.size(); ++i) {
        if (m_text.at(i) == '\n')
            m_lines.append(i + 1);
    }
    if (isWideText(bytes)) {
        add(warning(place, QStringLiteral("other-readers"),
                    QStringLiteral("is not UTF-8; the supervisor reads it, and hardly any other "
                                   "reader of JSON does")));
    } else if (bytes.startsWith("\xef\xbb\xbf")) {
        add(warning(place, QStringLiteral("other-readers"),
                    QStringLiteral("begins with a byte order mark; the supervisor reads it, and "
                                   "many other readers of JSON do not")));
    }
    const int replaced = m_text.indexOf("\xef\xbf\xbd");
    if (!isWideText(bytes) && hasInvalidUtf8(bytes) && replaced < 0) {
        add(warning(placeOf(m_text.size()), QStringLiteral("other-readers"),
                    QStringLiteral("half a character; the supervisor passes it over, and other "
                                   "readers of JSON do not")));
    } else if (!isWideText(bytes) && hasInvalidUtf8(bytes)) {
        add(error(placeOf(replaced), QStringLiteral("encoding"),
                  QStringLiteral("is no UTF-8 here; the supervisor reads U+FFFD instead")));
    }
    return true;
}

bool SettingsDocument::parse(QVariant &tree)
{
    m_positions = TextPositions(m_text);
    PynxError parseError;
    tree = PynxJson::parse(m_text, parseError, nullptr);
    m_json = QJsonValue::fromVariant(tree);
    const bool standard = m_positions.errorOffset() < 0;
    if (parseError.code != 0 || tree.isNull()) {
        const int offset = standard ? m_positions.value({}) : m_positions.errorOffset();
        QString said = standard ? parseError.message : m_positions.error();
        while (said.endsWith(QLatin1Char('.')))
            said.chop(1);
        refuse(placeOf(offset), QStringLiteral("not-json"),
               QStringLiteral("is not JSON (%1)").arg(mistakeAt(m_text, offset, said)));
        return false;
    }
    if (!standard) {
        add(warning(placeOf(m_positions.errorOffset()), QStringLiteral("other-readers"),
                    QStringLiteral("the supervisor accepts this, and other readers of JSON do not "
                                   "(%1)")
                        .arg(m_positions.error())));
    }
    const int nul = findNul(m_text);
    if (nul >= 0) {
        add(error(placeOf(nul), QStringLiteral("encoding"),
                  QStringLiteral("a NUL; no name, path or argument has one")));
    }
    return true;
}

void SettingsDocument::findOverridden()
{
    const QVector<TextPositions::Overridden> overridden = m_positions.overridden();
    for (const TextPositions::Overridden &member : overridden) {
        if (isFull())
            return;
        add(error(placeOf(member.key), QStringLiteral("duplicate-member"),
                  quoted(member.name)
                      + QStringLiteral(" stands again further down, and that one counts")));
    }
}

void SettingsDocument::unwrap(const QVariant &tree)
{
    const QString value = QStringLiteral("value");
    const QString type = QStringLiteral("type");
    const QString rule = QStringLiteral("envelope");
    if (!m_json.isObject()) {
        refuse(valuePlace({}), rule,
               QStringLiteral("is no object with the envelope in a member \"value\""));
        return;
    }
    if (!m_json.toObject().contains(value)) {
        refuse(valuePlace({}), rule, QStringLiteral("\"value\", the envelope, is missing"));
        return;
    }
    if (!json({value}).isObject()) {
        refuse(valuePlace({value}), rule,
               QStringLiteral("\"value\" is no object, which the envelope has to be"));
        return;
    }
    const QJsonObject envelope = json({value}).toObject();
    const QString name = tree.toHash().value(value).toHash().value(type).toString();
    if (!envelope.contains(name) && !envelope.contains(type)) {
        refuse(valuePlace({value}), rule,
               QStringLiteral("\"type\", which names the content, is missing"), {value, type});
        return;
    }
    if (!envelope.contains(name) && name.isEmpty()) {
        refuse(valuePlace({value, type}), rule, QStringLiteral("\"type\" names no member"),
               {value, type});
        return;
    }
    if (!envelope.contains(name)) {
        QStringList others = envelope.keys();
        others.removeOne(type);
        refuse(valuePlace({value, type}), rule,
               QStringLiteral("\"type\" names %1, and there is no such member%2")
                   .arg(quoted(name), didYouMean(name, others)),
               {value, type});
        return;
    }
    m_contentPath = JsonPath{value, name};
    m_content = readSettingsFile(m_path);
    if (m_content.isNull()) {
        refuse(valuePlace(m_contentPath), rule, QStringLiteral("the content is null"),
               m_contentPath);
        return;
    }
    if (isComment(name) || name == type) {
        add(warning(valuePlace({value, type}), rule,
                    QStringLiteral("\"type\" names %1, which hardly anybody takes for the content")
                        .arg(quoted(name))),
            {value, type});
    }
    const QStringList members = envelope.keys();
    for (const QString &member : members) {
        if (member != type && member != name && !isComment(member) && !isFull()) {
            add(warning(keyPlace({value, member}), QStringLiteral("unread-member"),
                        QStringLiteral("%1 is not read, because \"type\" names %2")
                            .arg(quoted(member), quoted(name))));
        }
    }
}

void SettingsDocument::refuse(const Place &place, const QString &rule, const QString &message,
                              const JsonPath &path)
{
    const bool ofFactory =
        QFileInfo(m_path).absolutePath().endsWith(QStringLiteral("/settings-default"));
    add(error(place, rule,
              message
                  + (ofFactory ? QStringLiteral("; the supervisor goes on without the document")
                               : QStringLiteral("; the supervisor passes the document over, and "
                                                "the factory's counts"))),
        path);
}

QJsonValue SettingsDocument::json(const JsonPath &path) const
{
    QJsonValue value = m_json;
    for (const QString &step : path)
        value = value.isArray() ? value.toArray().at(step.toInt()) : value.toObject().value(step);
    return value;
}

Place SettingsDocument::placeOf(int anyOffset) const
{
    const int offset = qBound(0, anyOffset, m_text.size());
    const auto *const next = std::upper_bound(m_lines.cbegin(), m_lines.cend(), offset);
    const int line = static_cast<int>(next - m_lines.cbegin());
    const int begin = line == 0 ? 0 : *(next - 1);
    // Each character has one byte that does not continue another one.
    const auto characters =
        std::count_if(m_text.cbegin() + begin, m_text.cbegin() + offset,
                      [](char byte) { return (static_cast<uchar>(byte) & 0xc0U) != 0x80U; });
    return {m_path, line, static_cast<int>(characters) + 1};
}

void SettingsDocument::add(const Finding &finding, const JsonPath &path)
{
    if (isFull())
        return;
    m_findings.append(finding);
    if (!path.isEmpty())
        m_wrong.insert(path);
}

bool SettingsDocument::isFull() const
{
    return m_findings.size() > maxFindings;
}

Findings SettingsDocument::findings() const
{
    Findings sorted = m_findings.mid(0, maxFindings);
    std::stable_sort(sorted.begin(), sorted.end(), [](const Finding &one, const Finding &other) {
        return std::make_pair(one.place.line, one.place.column)
            < std::make_pair(other.place.line, other.place.column);
    });
    if (isFull()) {
        sorted.append(
            error({m_path}, QStringLiteral("too-many"),
                  QStringLiteral("has more mistakes than the %1 above").arg(maxFindings)));
    }
    return sorted;
}
