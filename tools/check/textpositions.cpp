// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/textpositions.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

// Is told of each value when the reader has just passed it. What lies between two of them is
// blanks, commas and colons, so a value begins at the first other byte.
class PositionRecorder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, PositionRecorder>
{
public:
    PositionRecorder(const QByteArray &json, const rapidjson::MemoryStream &stream,
                     TextPositions &result)
        : m_json(json), m_stream(stream), m_result(result)
    { }

    bool Default()
    {
        enterValue();
        return true;
    }

    bool Key(const char *name, rapidjson::SizeType length, bool /*copy*/)
    {
        Container &object = m_containers.last();
        object.name = QString::fromUtf8(name, static_cast<int>(length));
        object.key = takeToken();
        const auto earlier = m_result.m_children.constFind({object.number, object.name});
        if (earlier != m_result.m_children.constEnd())
            m_result.m_overridden.append({object.name, m_result.m_entries.at(*earlier).key});
        return true;
    }

    bool StartObject() { return start(false); }
    bool StartArray() { return start(true); }
    bool EndObject(rapidjson::SizeType /*members*/) { return end(); }
    bool EndArray(rapidjson::SizeType /*elements*/) { return end(); }

private:
    struct Container
    {
        int number;
        int element;  // the number of the next element, or -1 in an object
        QString name; // of the member whose name was read
        int key;      // the beginning of that name
    };

    // Returns where the token begins that the reader has just passed.
    int takeToken()
    {
        static const QByteArray blanks(" \t\r\n,:");
        int offset = m_last;
        while (offset < m_json.size() && blanks.contains(m_json.at(offset)))
            ++offset;
        m_last = static_cast<int>(m_stream.Tell());
        return offset;
    }

    int enterValue()
    {
        const int offset = takeToken();
        const int number = m_result.m_entries.size();
        TextPositions::Entry entry = {offset, offset};
        if (!m_containers.isEmpty()) {
            Container &parent = m_containers.last();
            if (parent.element < 0)
                entry.key = parent.key;
            else
                parent.name = QString::number(parent.element++);
            m_result.m_children.insert({parent.number, parent.name}, number);
        }
        m_result.m_entries.append(entry);
        return number;
    }

    bool start(bool isArray)
    {
        const int number = enterValue();
        ++m_last; // the reader tells of a bracket before it passes it
        m_containers.append({number, isArray ? 0 : -1, QString(), 0});
        return true;
    }

    bool end()
    {
        m_last = takeToken() + 1;
        m_containers.removeLast();
        return true;
    }

    const QByteArray &m_json;
    const rapidjson::MemoryStream &m_stream;
    TextPositions &m_result;
    int m_last = 0; // the end of the last token
    QVector<Container> m_containers;
};

TextPositions::TextPositions(const QByteArray &json)
{
    rapidjson::MemoryStream stream(json.constData(), static_cast<size_t>(json.size()));
    PositionRecorder recorder(json, stream, *this);
    rapidjson::Reader reader;
    const auto parsed = reader.Parse<rapidjson::kParseIterativeFlag>(stream, recorder);
    if (parsed.IsError()) {
        m_errorOffset = static_cast<int>(parsed.Offset());
        m_error = QString::fromLatin1(rapidjson::GetParseError_En(parsed.Code()));
    }
}

int TextPositions::value(const JsonPath &path) const
{
    return find(path).value;
}

int TextPositions::key(const JsonPath &path) const
{
    return find(path).key;
}

TextPositions::Entry TextPositions::find(const JsonPath &path) const
{
    int number = 0;
    for (const QString &name : path) {
        const auto child = m_children.constFind({number, name});
        if (child == m_children.constEnd())
            break;
        number = *child;
    }
    return m_entries.value(number, {0, 0});
}
