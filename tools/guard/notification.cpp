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

// Whether each first byte of a character of UTF-8 has as many further bytes as it says.
bool isUtf8(std::string_view text)
{
    int missing = 0;
    for (const unsigned char byte : text) {
        if (continues(byte) != (missing > 0))
            return false;
        if (missing > 0)
            --missing;
        else if (byte >= 0x80)
            missing = byte >= 0xf8 ? -1 : byte >= 0xf0 ? 3 : byte >= 0xe0 ? 2 : 1;
        if (missing < 0)
            return false;
    }
    return missing == 0;
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
