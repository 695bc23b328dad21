// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// A process table, which is read and watched over some ticks. The input holds its files one after
// the other, each ended by the byte 0x1e. The first is the command line to look for, whose program
// is the command name. Then come, for every tick, the files that are named below.
#include "fuzz.h"
#include "inputfile.h"
#include "load/systemloadstat.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace {

constexpr int fileCount = 5;
constexpr const char *names[fileCount] = {"stat", "7/stat", "7/task/7/stat", "7/task/8/stat",
                                          "7/cmdline"};

// The files are links to files in memory, which are faster to write than files are to make.
class WrittenTable
{
public:
    WrittenTable()
    {
        QDir(root()).mkpath(QStringLiteral("7/task/7"));
        QDir(root()).mkpath(QStringLiteral("7/task/8"));
        for (int i = 0; i < fileCount; ++i)
            QFile::link(m_files[i].path(), path(i));
    }

    QString root() const { return m_directory.path(); }
    QString path(int i) const { return m_directory.filePath(QLatin1String(names[i])); }
    void write(int i, const QByteArray &content) const { m_files[i].write(content); }

private:
    QTemporaryDir m_directory;
    InputFile m_files[fileCount];
};

bool isShort(QByteArray line)
{
    line.replace('\r', "");
    return !line.isEmpty() && line.mid(line.lastIndexOf(')') + 2).count(' ') < 14;
}

void call(SystemLoadStat &stat, const char *slot)
{
    const bool called = QMetaObject::invokeMethod(&stat, slot);
    Q_ASSERT(called);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const WrittenTable table;
    QByteArrayList files =
        QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)).split('\x1e');
    QStringList args = QString::fromUtf8(files.takeFirst()).split(QChar::Null);
    const QString name = args.takeFirst();

    SystemLoadStat stat(table.root(), false);
    QObject::connect(&stat, &SystemLoadStat::cpuLoadExceed, [](int id, const QStringList &lines) {
        Q_ASSERT(id == 0 && lines.size() > 1);
    });
    WatchEntry entry;
    entry.name = name;
    entry.args = args;
    entry.period = 2;
    entry.cpuLoad = 50;
    entry.readThreads = true;
    entry.notFoundPeriod = 2;
    watch(&stat, entry);

    for (bool started = false; files.size() >= fileCount; started = true) {
        bool readable = true;
        for (int i = 0; i < fileCount; ++i) {
            const QByteArray content = files.takeFirst();
            table.write(i, content);
            if (i == 0 || i == 4)
                continue;
            const auto read = [i, &stat] {
                StatRecord record;
                return stat.readStatFile(table.path(i), record);
            };
            const bool fatal = isShort(content);
            if (fatal)
                mustAbort(read);
            else
                Q_ASSERT(read() == 0 || QByteArray(content).replace('\r', "").isEmpty());
            readable = readable && !fatal;
        }
        const int pid = stat.pidIfNameMatches(table.path(1), name);
        const bool isMeant = pid > 0 && stat.argsMatch(table.path(4), args);
        Q_ASSERT(stat.findPidByNameAndArgs(name, args) == (isMeant ? pid : 0));
        if (!readable)
            break;
        call(stat, started ? "on_cpuLoadTimer_timeout" : "do_start");
    }
    call(stat, "do_stop");
    return 0;
}
