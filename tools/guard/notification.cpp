// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/notification.h"

#include <algorithm>
#include <charconv>

namespace {

using std::chrono::microseconds;

constexpr std::size_t longestStatus = 400; // bytes
// What is longer is taken for this, so that no sum of times overflows.
constexpr microseconds longestTime = std::chrono::hours(24 * 365);

std::optional<microseconds> time(std::string_view text)
{
    unsigned long long value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (stop != end || text.empty() || error == std::errc::invalid_argument)
        return std::nullopt;
    const auto most = static_cast<unsigned long long>(longestTime.count());
    if (error == std::errc::result_out_of_range)
        value = most;
    return microseconds(std::min(value, most));
}

bool continues(unsigned char byte)
{
    return (byte & 0xc0U) == 0x80U;
}

// The size of the character that @p text begins with; 0: it is no UTF-8. The second byte tells of
// characters that are written longer than they need be, surrogates, and those beyond Unicode.
std::size_t utf8Size(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80)
        return 1;
    const std::size_t size = first < 0xc2 ? 0
        : first < 0xe0                    ? 2
        : first < 0xf0                    ? 3
        : first < 0xf5                    ? 4
                                          : 0;
    if (size == 0 || size > text.size())
        return 0;
    const auto second = static_cast<unsigned char>(text[1]);
    if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)
        || (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f))
        return 0;
    const std::string_view others = text.substr(1, size - 1);
    return std::all_of(others.begin(), others.end(), continues) ? size : 0;
}

bool isUtf8(std::string_view text)
{
    while (!text.empty()) {
        const std::size_t size = utf8Size(text);
        if (size == 0)
            return false;
        text.remove_prefix(size);
    }
    return true;
}

// The text is printed in one line on a terminal or into a log, so it loses its control characters,
// and all that is not ASCII if it is no UTF-8. A character of several bytes is never cut.
std::string printable(std::string_view text)
{
    std::size_t size = std::min(text.size(), longestStatus);
    while (size > 0 && size < text.size() && continues(static_cast<unsigned char>(text[size])))
        --size;
    std::string line(text.substr(0, size));
    const unsigned char most = isUtf8(line) ? 0xff : 0x7e;
    const auto isOdd = [=](unsigned char byte) {
        return byte < ' ' || byte == 0x7f || byte > most;
    };
    std::replace_if(line.begin(), line.end(), isOdd, '?');
    // The control characters from U+0080 to U+009F have two bytes, and the first is c2.
    for (std::size_t at = 0; (at = line.find('\xc2', at)) != std::string::npos; ++at) {
        if (static_cast<unsigned char>(line[at + 1]) < 0xa0)
            line.replace(at, 2, "?");
    }
    return line;
}

void readLine(std::string_view name, std::string_view value, Notification &said)
{
    if (name == "WATCHDOG") {
        said.beat |= value == "1";
        said.trigger |= value == "trigger";
    } else if (name == "READY") {
        said.ready |= value == "1";
    } else if (name == "STOPPING") {
        said.stopping |= value == "1";
    } else if (name == "WATCHDOG_USEC") {
        said.timeout = time(value);
    } else if (name == "EXTEND_TIMEOUT_USEC") {
        said.extend = time(value);
    } else if (name == "STATUS") {
        said.status = printable(value);
    }
}

} // namespace

Notification parseNotification(std::string_view datagram)
{
    Notification said;
    while (!datagram.empty()) {
        const std::string_view line = datagram.substr(0, datagram.find('\n'));
        datagram.remove_prefix(std::min(line.size() + 1, datagram.size()));
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos)
            readLine(line.substr(0, equals), line.substr(equals + 1), said);
    }
    return said;
}
