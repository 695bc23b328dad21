// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/statline.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

// The index of the first time. The state, which is the first field after the name, has the index 0.
constexpr int firstTimeField = 11;

int indexIn(const char *text, const void *found)
{
    return found != nullptr ? static_cast<int>(static_cast<const char *>(found) - text) : -1;
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// fromUtf8() removes a byte order mark at the beginning, but here the mark is a part of the name.
QString toText(const char *begin, const char *end)
{
    QString text = QString::fromUtf8(begin, static_cast<int>(end - begin));
    if (end - begin >= 3 && std::memcmp(begin, "\xef\xbb\xbf", 3) == 0)
        text.prepend(QChar(QChar::ByteOrderMark));
    return text;
}

qint64 toNumber(const char *begin, const char *end)
{
    // The kernel writes plain digits. Qt decides whether anything else is a number.
    constexpr int safeDigits = std::numeric_limits<qint64>::digits10;
    if (begin == end || end - begin > safeDigits || !std::all_of(begin, end, isDigit))
        return toText(begin, end).toLongLong();
    qint64 number = 0;
    for (const char *digit = begin; digit != end; ++digit)
        number = number * 10 + (*digit - '0');
    return number;
}

// Reads the fields of a stat line, one after the other.
class FieldReader
{
public:
    FieldReader(const char *begin, const char *end) : m_next(begin), m_end(end) { }

    void skip(int count)
    {
        for (int i = 0; i < count; ++i)
            next();
    }

    qint64 number()
    {
        const char *field = m_next;
        return toNumber(field, next());
    }

private:
    // Skips one field and returns its end. The kernel writes no line that is too short
    // (kept-behaviour.md: short-stat-line).
    const char *next()
    {
        Q_ASSERT_X(m_next != nullptr, "StatLine::record", "too few fields");
        const char *end = std::find(m_next, m_end, ' ');
        m_next = end != m_end ? end + 1 : nullptr;
        return end;
    }

    const char *m_next; // null: after the last field
    const char *m_end;
};

} // namespace

StatLine::StatLine(const char *text, int size)
    : m_text(text), m_size(size),
      m_open(indexIn(text, std::memchr(text, '(', static_cast<std::size_t>(size)))),
      m_close(indexIn(text, ::memrchr(text, ')', static_cast<std::size_t>(size))))
{ }

int StatLine::pid() const
{
    const int length = m_open > 0 ? m_open - 1 : m_size;
    const qint64 number = toNumber(m_text, m_text + length);
    const bool isInt = number == static_cast<int>(number);
    return isInt ? static_cast<int>(number) : 0;
}

QString StatLine::name() const
{
    const int begin = m_open + 1;
    const int end = m_close >= begin ? m_close : m_size;
    return toText(m_text + begin, m_text + end);
}

StatRecord StatLine::record() const
{
    StatRecord record;
    record.name = name();
    record.pid = pid();
    FieldReader fields(m_text + std::min(m_close + 2, m_size), m_text + m_size);
    fields.skip(firstTimeField);
    record.utime = fields.number();
    record.stime = fields.number();
    record.cutime = fields.number();
    record.cstime = fields.number();
    return record;
}
