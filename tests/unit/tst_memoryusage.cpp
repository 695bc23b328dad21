// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "health/memoryusage.h"
#include "testfiles.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>

namespace {

constexpr quint64 largest = 0xFFFFFFFFFFFFFFFFULL;
constexpr quint64 kiB = 1024;

// The parameters have the order of the fields.
MemoryUsage usageOf(quint64 memTotal, quint64 memFree, quint64 memAvailable, quint64 buffers,
                    quint64 cached, quint64 slab)
{
    return {memTotal, memFree, memAvailable, buffers, cached, slab};
}

QByteArray textOf(const MemoryUsage &usage)
{
    return QStringLiteral("total %1 free %2 available %3 buffers %4 cached %5 slab %6")
        .arg(usage.memTotal)
        .arg(usage.memFree)
        .arg(usage.memAvailable)
        .arg(usage.buffers)
        .arg(usage.cached)
        .arg(usage.slab)
        .toUtf8();
}

QString fixture(const QString &name)
{
    return QStringLiteral(TEST_FIXTURES "/meminfo/") + name;
}

// Reads the file in a child, which prints the values as text and the messages on standard error.
ChildResult readInChild(const QString &path)
{
    return runInChild([&path] { std::fputs(textOf(MemoryUsage::read(path)).constData(), stdout); });
}

} // namespace

Q_DECLARE_METATYPE(MemoryUsage)

class MemoryUsageTest : public QObject
{
    Q_OBJECT

private slots:
    void content_data();
    void content();
    void lineWithoutNumberIsFatal_data();
    void lineWithoutNumberIsFatal();
    void kernelsFile_data();
    void kernelsFile();
    void readsThisMachine();
    void everyReadingReadsTheFileAgain();
    void missingFile_data();
    void missingFile();
    void reportLine_data();
    void reportLine();

private:
    QString file() const { return m_directory.filePath(QStringLiteral("meminfo")); }

    QTemporaryDir m_directory;
};

void MemoryUsageTest::content_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<MemoryUsage>("usage");
    QTest::addColumn<QByteArray>("messages");

    const QByteArray none;
    const MemoryUsage nothing;

    QTest::newRow("kibibytes") << QByteArray("MemFree: 5 kB\n") << usageOf(0, 5120, 0, 0, 0, 0)
                               << none;
    QTest::newRow("mebibytes") << QByteArray("Cached: 3 MB\n") << usageOf(0, 0, 0, 0, 3145728, 0)
                               << none;
    QTest::newRow("unknown unit") << QByteArray("Buffers: 4 gB\n") << usageOf(0, 0, 0, 4, 0, 0)
                                  << QByteArray("MemoryUsage: unrecognized unit: gb\n");
    QTest::newRow("no unit") << QByteArray("Slab: 7\n") << usageOf(0, 0, 0, 0, 0, 7) << none;
    QTest::newRow("no colon") << QByteArray("Cached 200 kB\n") << nothing << none;
    QTest::newRow("two colons, unknown key") << QByteArray("Foo: 1: 2\n") << nothing << none;
    QTest::newRow("blank before the key") << QByteArray(" MemFree: 5 kB\n") << nothing << none;
    QTest::newRow("the later of two lines counts")
        << QByteArray("Cached: 3 kB\nCached: 2 kB\n") << usageOf(0, 0, 0, 0, 2048, 0) << none;
    QTest::newRow("not a number") << QByteArray("MemFree: abc kB\n") << nothing << none;

    QTest::newRow("all keys") << QByteArray("MemTotal: 1 kB\nMemFree: 2 kB\nMemAvailable: 3 kB\n"
                                            "Buffers: 4 kB\nCached: 5 kB\nSlab: 6 kB\n")
                              << usageOf(1024, 2048, 3072, 4096, 5120, 6144) << none;
    QTest::newRow("keys like ours") << QByteArray("SwapCached: 1 kB\nMemfree: 2 kB\nSLAB: 3 kB\n"
                                                  "MemFree2: 4 kB\nBuffer: 5 kB\nMemFree : 6 kB\n")
                                    << nothing << none;
    QTest::newRow("empty file") << none << nothing << none;
    QTest::newRow("two colons, known key") << QByteArray("MemFree: 5 kB: 2\n") << nothing << none;
    QTest::newRow("an ignored line keeps the earlier value")
        << QByteArray("MemFree: 5 kB\nMemFree: 1: 2\nMemFree 7 kB\n")
        << usageOf(0, 5120, 0, 0, 0, 0) << none;
    QTest::newRow("a later line that is not a number counts as 0")
        << QByteArray("MemFree: 5 kB\nMemFree: abc kB\n") << nothing << none;

    QTest::newRow("unit in any case")
        << QByteArray("MemTotal: 1 KB\nMemFree: 2 kb\nBuffers: 3 Kb\nCached: 4 mb\nSlab: 5 Mb\n")
        << usageOf(1024, 2048, 0, 3072, 4194304, 5242880) << none;
    QTest::newRow("three words are no unit")
        << QByteArray("MemFree: 5 kB more\nSlab: 6 gB more\n") << usageOf(0, 5, 0, 0, 0, 6) << none;
    QTest::newRow("number in the second word") << QByteArray("MemFree: kB 5\n") << nothing
                                               << QByteArray("MemoryUsage: unrecognized unit: 5\n");
    QTest::newRow("a message for every line with an unknown unit")
        << QByteArray("Buffers: 4 gB\nFoo: 1 Pages\nBuffers: 5 gB\nBar: 0 %\n")
        << usageOf(0, 0, 0, 5, 0, 0)
        << QByteArray("MemoryUsage: unrecognized unit: gb\nMemoryUsage: unrecognized unit: pages\n"
                      "MemoryUsage: unrecognized unit: gb\nMemoryUsage: unrecognized unit: %\n");

    QTest::newRow("negative number") << QByteArray("MemFree: -5 kB\n") << nothing << none;
    QTest::newRow("hexadecimal") << QByteArray("MemFree: 0x10 kB\n") << nothing << none;
    QTest::newRow("a leading 0 is decimal")
        << QByteArray("MemFree: 010 kB\n") << usageOf(0, 10240, 0, 0, 0, 0) << none;
    QTest::newRow("more than 32 bits") << QByteArray("MemFree: 34359738367 kB\n")
                                       << usageOf(0, 35184372087808ULL, 0, 0, 0, 0) << none;
    QTest::newRow("64 bits") << QByteArray("Slab: 18446744073709551615\n")
                             << usageOf(0, 0, 0, 0, 0, largest) << none;
    QTest::newRow("scaling wraps") << QByteArray("Slab: 18446744073709551615 kB\n")
                                   << usageOf(0, 0, 0, 0, 0, largest - 1023) << none;
    QTest::newRow("more than 64 bits is no number")
        << QByteArray("Slab: 18446744073709551616\n") << nothing << none;
}

void MemoryUsageTest::content()
{
    QFETCH(QByteArray, content);
    QFETCH(MemoryUsage, usage);
    QFETCH(QByteArray, messages);

    writeFile(file(), content);
    const ChildResult child = readInChild(file());
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardOutput, textOf(usage));
    QCOMPARE(child.standardError, messages);
}

void MemoryUsageTest::lineWithoutNumberIsFatal_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("nothing after the colon") << QByteArray("MemFree:\n");
    QTest::newRow("blanks after the colon") << QByteArray("MemFree:    \n");
    QTest::newRow("a key of no interest") << QByteArray("MemFree: 5 kB\nFoo:\n");
    QTest::newRow("a colon alone") << QByteArray(":");
}

void MemoryUsageTest::lineWithoutNumberIsFatal()
{
    QFETCH(QByteArray, content);
    writeFile(file(), content);
    const ChildResult child = readInChild(file());
    QVERIFY2(child.failedAssertion("!isEmpty()"), child.standardError.constData());
}

void MemoryUsageTest::kernelsFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<MemoryUsage>("usage");

    QTest::newRow("a table in bytes ahead, no MemAvailable, no Slab")
        << QStringLiteral("linux-2.4-i386")
        << usageOf(255732 * kiB, 12076 * kiB, 0, 8956 * kiB, 68844 * kiB, 0);
    QTest::newRow("no MemAvailable")
        << QStringLiteral("linux-2.6-arm")
        << usageOf(29372 * kiB, 17040 * kiB, 0, 396 * kiB, 4812 * kiB, 2916 * kiB);
    QTest::newRow("no huge pages") << QStringLiteral("linux-5.10-arm64")
                                   << usageOf(1012040 * kiB, 613268 * kiB, 811940 * kiB,
                                              15164 * kiB, 205876 * kiB, 31560 * kiB);
    QTest::newRow("huge pages, whose counts have no unit")
        << QStringLiteral("linux-6.18-x86-64")
        << usageOf(24684096 * kiB, 23538140 * kiB, 23841188 * kiB, 4808 * kiB, 466756 * kiB,
                   120172 * kiB);
}

void MemoryUsageTest::kernelsFile()
{
    QFETCH(QString, name);
    QFETCH(MemoryUsage, usage);
    const ChildResult child = readInChild(fixture(name));
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardOutput, textOf(usage));
    QCOMPARE(child.standardError, QByteArray());
}

void MemoryUsageTest::readsThisMachine()
{
    QFile file(QStringLiteral("/proc/meminfo"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString content = QString::fromUtf8(file.readAll());
    const QRegularExpression total(QStringLiteral("^MemTotal: +([0-9]+) kB$"),
                                   QRegularExpression::MultilineOption);
    const QString expected = total.match(content).captured(1);
    QVERIFY(!expected.isEmpty());

    const MemoryUsage usage = MemoryUsage::read();
    QCOMPARE(usage.memTotal, expected.toULongLong() * kiB);
    QVERIFY(usage.memFree > 0);
    QVERIFY(usage.memFree <= usage.memTotal);
}

void MemoryUsageTest::everyReadingReadsTheFileAgain()
{
    writeFile(file(), "MemFree: 1 kB\nSlab: 7\n");
    QCOMPARE(textOf(MemoryUsage::read(file())), textOf(usageOf(0, kiB, 0, 0, 0, 7)));
    writeFile(file(), "MemFree: 2 kB\n");
    QCOMPARE(textOf(MemoryUsage::read(file())), textOf(usageOf(0, 2 * kiB, 0, 0, 0, 0)));
}

void MemoryUsageTest::missingFile_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("no such file") << QStringLiteral("/nowhere/meminfo");
    QTest::newRow("a directory") << m_directory.path();
    QTest::newRow("a name in UTF-8") << QString::fromUtf8("/nowhere/m\u00e9minfo");
}

void MemoryUsageTest::missingFile()
{
    QFETCH(QString, path);
    const ChildResult child = readInChild(path);
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardOutput, textOf(MemoryUsage()));
    QCOMPARE(child.standardError,
             QByteArray("MemoryUsage: unable to open file: ") + path.toUtf8() + '\n');
}

void MemoryUsageTest::reportLine_data()
{
    QTest::addColumn<MemoryUsage>("usage");
    QTest::addColumn<QString>("time");
    QTest::addColumn<QString>("line");

    const QString time = QStringLiteral("2026-06-04 12:00:00.000");
    QTest::newRow("figures") << usageOf(0, 512 * kiB, 0, 100 * kiB, 200 * kiB, 300 * kiB) << time
                             << QStringLiteral(
                                    "2026-06-04 12:00:00.000 == MEMORY USAGE == Free: 512 kB, "
                                    "Buffers+Cache: 600 kB\n");
    QTest::newRow("nothing") << MemoryUsage() << time
                             << QStringLiteral("2026-06-04 12:00:00.000 == MEMORY USAGE == "
                                               "Free: 0 kB, Buffers+Cache: 0 kB\n");
    QTest::newRow("Free is memFree alone")
        << usageOf(9000 * kiB, 5 * kiB, 7000 * kiB, 0, 0, 0) << QStringLiteral("T")
        << QStringLiteral("T == MEMORY USAGE == Free: 5 kB, Buffers+Cache: 0 kB\n");
    QTest::newRow("Buffers+Cache includes slab")
        << usageOf(0, 0, 0, 0, 0, 3 * kiB) << QStringLiteral("T")
        << QStringLiteral("T == MEMORY USAGE == Free: 0 kB, Buffers+Cache: 3 kB\n");
    QTest::newRow("remainders are dropped")
        << usageOf(0, 2047, 0, 1023, 0, 0) << QStringLiteral("T")
        << QStringLiteral("T == MEMORY USAGE == Free: 1 kB, Buffers+Cache: 0 kB\n");
    QTest::newRow("a remainder of the sum is dropped, not one of each part")
        << usageOf(0, 0, 0, 512, 511, 1025) << QStringLiteral("T")
        << QStringLiteral("T == MEMORY USAGE == Free: 0 kB, Buffers+Cache: 2 kB\n");
    QTest::newRow("the sum wraps")
        << usageOf(0, 0, 0, largest, 1024, 1) << QStringLiteral("T")
        << QStringLiteral("T == MEMORY USAGE == Free: 0 kB, Buffers+Cache: 1 kB\n");
    // The values are substituted one after the other, so a marker in the time text is replaced too.
    QTest::newRow("a place marker in the time text")
        << usageOf(0, 5 * kiB, 0, 0, 0, 7 * kiB) << QStringLiteral("%3")
        << QStringLiteral("7 kB == MEMORY USAGE == Free: 5 kB, Buffers+Cache: 7 kB\n");
}

void MemoryUsageTest::reportLine()
{
    QFETCH(MemoryUsage, usage);
    QFETCH(QString, time);
    QFETCH(QString, line);
    QCOMPARE(usage.reportLine(time), line);
}

QTEST_GUILESS_MAIN(MemoryUsageTest)
#include "tst_memoryusage.moc"
