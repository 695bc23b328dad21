// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/textpositions.h"

#include <cstring>

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

namespace {

// Is told of each value when the reader has just passed it. What lies between two of them is
// blanks, commas and colons, so a value begins at the first other byte.
class Recorder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Recorder>
{
public:
    Recorder(const QByteArray &json, const rapidjson::MemoryStream &stream, TextPositions &result)
        : m_json(json), m_stream(stream), m_result(result)
    { }

    bool Default()
    {
        enterValue(nextToken());
        leaveToken();
        return true;
    }

    bool Key(const char *name, rapidjson::SizeType length, bool /*copy*/)
    {
        Container &object = m_containers.last();
        object.path = object.prefix + QString::fromUtf8(name, static_cast<int>(length));
        object.key = nextToken();
        leaveToken();
        const auto earlier = m_result.entries.constFind(object.path);
        if (earlier != m_result.entries.constEnd())
            m_result.overridden.append({object.path, earlier->key});
        return true;
    }

    bool StartObject() { return start(false); }
    bool StartArray() { return start(true); }
    bool EndObject(rapidjson::SizeType /*members*/) { return end(); }
    bool EndArray(rapidjson::SizeType /*elements*/) { return end(); }

private:
    struct Container
    {
        QString prefix; // of the paths of what is in it
        int element;    // the number of the next element, or -1 in an object
        QString path;   // of the member whose name was read
        int key;        // the beginning of that name
    };

    int nextToken() const
    {
        int offset = m_last;
        while (offset < m_json.size() && std::strchr(" \t\r\n,:", m_json.at(offset)) != nullptr)
            ++offset;
        return offset;
    }

    void leaveToken() { m_last = static_cast<int>(m_stream.Tell()); }

    QString enterValue(int offset)
    {
        if (m_containers.isEmpty()) {
            m_result.entries.insert(QString(), {offset, offset});
            return QString();
        }
        Container &parent = m_containers.last();
        if (parent.element < 0) {
            m_result.entries.insert(parent.path, {parent.key, offset});
            return parent.path;
        }
        const QString path = parent.prefix + QString::number(parent.element++);
        m_result.entries.insert(path, {offset, offset});
        return path;
    }

    bool start(bool isArray)
    {
        const QString path = enterValue(nextToken());
        leaveToken();
        m_containers.append({path + QLatin1Char('/'), isArray ? 0 : -1, QString(), 0});
        return true;
    }

    bool end()
    {
        leaveToken();
        m_containers.removeLast();
        return true;
    }

    const QByteArray &m_json;
    const rapidjson::MemoryStream &m_stream;
    TextPositions &m_result;
    int m_last = 0; // the end of the last token
    QVector<Container> m_containers;
};

} // namespace

TextPositions findPositions(const QByteArray &json)
{
    TextPositions result;
    rapidjson::MemoryStream stream(json.constData(), static_cast<size_t>(json.size()));
    Recorder recorder(json, stream, result);
    rapidjson::Reader reader;
    const auto parsed = reader.Parse<rapidjson::kParseIterativeFlag>(stream, recorder);
    if (parsed.IsError()) {
        result.errorOffset = static_cast<int>(parsed.Offset());
        result.error = QString::fromLatin1(rapidjson::GetParseError_En(parsed.Code()));
    }
    return result;
}
