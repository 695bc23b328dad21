// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// A settings document: its values are read by type, and its texts as sizes.
#include "logging/settings.h"

#include "fuzz.h"
#include "inputfile.h"
#include "platform/pynx_api.h"

namespace {

void viewProcess(const PynxWatchdogWatchProcess &process)
{
    process.name();
    process.arguments();
    process.period();
    process.maxLoad();
    process.threadInfo();
    process.maxReports();
    process.logFile();
}

void readSize(const QString &text)
{
    if (text.isEmpty()) {
        mustAbort([&text] { parseSize(text); });
        return;
    }
    const int number = parseSize(text + QLatin1Char('.'));
    const int kibi = parseSize(text + QLatin1Char('k'));
    Q_ASSERT(static_cast<quint32>(kibi) == 1024U * static_cast<quint32>(number));
    Q_ASSERT(kibi == parseSize(text + QLatin1Char('K')));
}

} // namespace

// Qt's parser leaks some memory at certain malformed documents.
extern "C" const char *__lsan_default_suppressions() // NOLINT(bugprone-reserved-identifier)
{
    return "leak:libQt5Core";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const InputFile file;
    file.write(QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    const QVariant payload = readSettingsFile(file.path());
    payload.toBool();
    const QVariantList list = payload.toList();
    for (const QVariant &entry : list)
        viewProcess(PynxWatchdogWatchProcess(PynxHash(entry.toHash())));
    const QVariantHash hash = payload.toHash();
    const PynxWatchdogReportsConfig upload{PynxHash(hash)};
    upload.uploadPath();
    upload.uploadFilePrefix();
    PynxSystemLogReportConfig(PynxHash(hash)).files();
    for (const QVariant &member : hash)
        readSize(member.toString());
    return 0;
}
