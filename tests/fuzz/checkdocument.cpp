// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// A settings document for pynx-watchdog-check. The first byte chooses which one it is.
#include "fuzz.h"
#include "inputfile.h"
#include "platform/pynx_api.h"
#include "tools/check/documents.h"

#include <QFile>
#include <QTemporaryDir>

// Qt's parser leaks some memory at certain malformed documents.
extern "C" const char *__lsan_default_suppressions() // NOLINT(bugprone-reserved-identifier)
{
    return "leak:libQt5Core";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const InputFile file;
    static const QTemporaryDir links; // the names lead to the file in memory
    static const QStringList names = {
        PynxWatchdogWatchProcessListPath().base(),
        PynxWatchdogAutomaticReportingPath().base(),
        PynxWatchdogAutomaticReportingConfPath().base(),
        PynxWatchdogMemoryReportingConfPath().base(),
        PynxSystemManagerLogReportConfigPath().base(),
        PynxSystemManagerLogFilesSizeConfigPath().base(),
    };
    if (size == 0)
        return 0;
    const QString path = links.filePath(names.at(data[0] % names.size()));
    QFile::link(file.path(), path); // fails where it is there already
    file.write(QByteArray(reinterpret_cast<const char *>(data) + 1, static_cast<int>(size) - 1));

    const Findings findings = checkDocument(path);
    for (const Finding &finding : findings) {
        Q_ASSERT(finding.place.file == path);
        Q_ASSERT((finding.place.line == 0) == (finding.place.column == 0));
        Q_ASSERT(!finding.rule.isEmpty() && !finding.message.isEmpty());
        Q_ASSERT(!finding.toText().contains(QLatin1Char('\n')));
    }
    return 0;
}
