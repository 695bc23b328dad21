// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// A datagram that comes to the guard's notification socket.
#include "tools/guard/notification.h"

#include "fuzz.h"

#include <QString>

namespace {

constexpr std::size_t longestStatus = 400;
constexpr std::chrono::microseconds longestTime = std::chrono::hours(24 * 365);

bool isShort(const std::optional<std::chrono::microseconds> &time)
{
    return !time || (time->count() >= 0 && *time <= longestTime);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view datagram(reinterpret_cast<const char *>(data), size);
    const Notification said = parseNotification(datagram);
    Q_ASSERT(isShort(said.timeout) && isShort(said.extend));
    if (said.status) {
        const QByteArray status = QByteArray::fromStdString(*said.status);
        Q_ASSERT(said.status->size() <= longestStatus);
        const QString text = QString::fromUtf8(status);
        Q_ASSERT(text.toUtf8() == status);
        for (const QChar character : text)
            Q_ASSERT(character.category() != QChar::Other_Control);
    }

    // The first line and the rest say together what both say alone.
    const std::size_t end = datagram.find('\n');
    if (end == std::string_view::npos)
        return 0;
    const Notification first = parseNotification(datagram.substr(0, end));
    const Notification rest = parseNotification(datagram.substr(end + 1));
    Q_ASSERT(said.beat == (first.beat || rest.beat));
    Q_ASSERT(said.trigger == (first.trigger || rest.trigger));
    Q_ASSERT(said.ready == (first.ready || rest.ready));
    Q_ASSERT(said.stopping == (first.stopping || rest.stopping));
    Q_ASSERT(said.status == (rest.status ? rest.status : first.status));
    return 0;
}
