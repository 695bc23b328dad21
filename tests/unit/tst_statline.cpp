// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "load/statline.h"
#include "preparedproc.h"

#include <QtTest>

#include <csignal>
#include <limits>

namespace {

StatRecord recordOf(const QByteArray &line)
{
    return StatLine(line.constData(), line.size()).record();
}

// A stat line with these four times.
QByteArray lineWith(const QByteArray &times, const QByteArray &rest = " 20 0 1\n")
{
    return "7 (x) S 1 1 1 0 -1 64 9 8 7 6 " + times + rest;
}

} // namespace

// tests/fuzz compares the results for any line with those of a simple reader.
class StatLineTest : public QObject
{
    Q_OBJECT

private slots:
    void fields_data();
    void fields();
    void times_data();
    void times();
    void shortLineIsFatal_data();
    void shortLineIsFatal();
};

void StatLineTest::fields_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("pid");
    QTest::addColumn<QString>("name");

    const Times times = {11, 12, 13, 14};
    const auto row = [&times](const char *title, int pid, const QByteArray &name,
                              const QString &text) {
        QTest::newRow(title) << PreparedProc::statLine(pid, name, times) << pid << text;
    };
    row("plain", 42, "daemon", QStringLiteral("daemon"));
    row("highest process id", 4194304, "daemon", QStringLiteral("daemon"));
    row("empty name", 42, "", QString());
    row("blanks", 42, "a b  c", QStringLiteral("a b  c"));
    row("blanks around it are kept", 42, " daemon ", QStringLiteral(" daemon "));
    row("parentheses", 42, "(sd-pam)", QStringLiteral("(sd-pam)"));
    row("parentheses and blanks", 42, "a) S 1 (b", QStringLiteral("a) S 1 (b"));
    row("ends like a name", 42, "x) ", QStringLiteral("x) "));
    row("line ends", 42, "two\nlines\n", QStringLiteral("two\nlines\n"));
    row("kernel thread", 9, "kworker/0:1H-kblockd", QStringLiteral("kworker/0:1H-kblockd"));
    row("not ASCII", 42, "\xc3\xa9t\xc3\xa9 \xe2\x82\xac", QString::fromUtf8("été €"));
    row("cut in the middle of a character", 42, "caf\xc3", QStringLiteral("caf\xfffd"));
    row("not UTF-8", 42, "caf\xe9", QStringLiteral("caf\xfffd"));
    row("a byte order mark is a character", 42, "\xef\xbb\xbf\xef\xbb\xbfz",
        QStringLiteral("\xfeff\xfeffz"));

    QTest::newRow("kernel 2.6: fewer fields at the end")
        << QByteArray("42 (daemon) S 1 42 42 0 -1 256 0 0 0 0 11 12 13 14 16 0 1 0 7 1 2 3 4\n")
        << 42 << QStringLiteral("daemon");
    QTest::newRow("fields of kernels to come")
        << PreparedProc::statLine(42, "daemon", times).replace("\n", " 99 x 100\n") << 42
        << QStringLiteral("daemon");
    QTest::newRow("nothing after the times") << QByteArray("42 (daemon) S 1 1 1 0 -1 0 0 0 0 0"
                                                           " 11 12 13 14")
                                             << 42 << QStringLiteral("daemon");
    QTest::newRow("line end right after the times")
        << QByteArray("42 (daemon) S 1 1 1 0 -1 0 0 0 0 0 11 12 13 14\n") << 42
        << QStringLiteral("daemon");
    QTest::newRow("process id is not a number")
        << QByteArray("x2 (daemon) S 1 1 1 0 -1 0 0 0 0 0 11 12 13 14 0\n") << 0
        << QStringLiteral("daemon");
    QTest::newRow("process id is no int")
        << QByteArray("4294967298 (daemon) S 1 1 1 0 -1 0 0 0 0 0 11 12 13 14 0\n") << 0
        << QStringLiteral("daemon");
}

void StatLineTest::fields()
{
    QFETCH(QByteArray, line);
    const StatRecord record = recordOf(line);
    QTEST(record.pid, "pid");
    QTEST(record.name, "name");
    QCOMPARE(record.utime, 11LL);
    QCOMPARE(record.stime, 12LL);
    QCOMPARE(record.cutime, 13LL);
    QCOMPARE(record.cstime, 14LL);

    const StatLine parts(line.constData(), line.size());
    QTEST(parts.pid(), "pid");
    QTEST(parts.name(), "name");
}

void StatLineTest::times_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<qint64>("utime");
    QTest::addColumn<qint64>("stime");
    QTest::addColumn<qint64>("cutime");
    QTest::addColumn<qint64>("cstime");

    constexpr qint64 highest = std::numeric_limits<qint64>::max();
    constexpr qint64 lowest = std::numeric_limits<qint64>::min();
    QTest::newRow("zero") << lineWith("0 0 0 0") << 0LL << 0LL << 0LL << 0LL;
    QTest::newRow("beyond 32 bits") << lineWith("4294967296 4294967297 4294967298 4294967299")
                                    << 4294967296LL << 4294967297LL << 4294967298LL << 4294967299LL;
    QTest::newRow("highest and lowest")
        << lineWith("9223372036854775807 -9223372036854775808 999999999999999999"
                    " 1000000000000000000")
        << highest << lowest << 999999999999999999LL << 1000000000000000000LL;
    QTest::newRow("too high") << lineWith("9223372036854775808 18446744073709551615"
                                          " 99999999999999999999 -9223372036854775809")
                              << 0LL << 0LL << 0LL << 0LL;
    QTest::newRow("negative and with a plus")
        << lineWith("-1 +2 -300 +4") << -1LL << 2LL << -300LL << 4LL;
    QTest::newRow("not numbers") << lineWith("x 1x x1 0x1") << 0LL << 0LL << 0LL << 0LL;
    QTest::newRow("not a number behind a byte order mark") << lineWith("\xef\xbb\xbf"
                                                                       "1 2 3 4")
                                                           << 0LL << 2LL << 3LL << 4LL;
    QTest::newRow("leading zeros")
        << lineWith("007 0000000000000000000000000000005 00 010") << 7LL << 5LL << 0LL << 10LL;
    QTest::newRow("an empty field counts as one") << lineWith("1  2 3") << 1LL << 0LL << 2LL << 3LL;
    QTest::newRow("empty at the end") << lineWith("1 2 3 ", "") << 1LL << 2LL << 3LL << 0LL;
    QTest::newRow("a tab does not end a field")
        << lineWith("1\t2 3 4 5") << 0LL << 3LL << 4LL << 5LL;
    QTest::newRow("white space other than a blank is trimmed")
        << lineWith("\t1 2\t \v3\f 4", "\n") << 1LL << 2LL << 3LL << 4LL;
}

void StatLineTest::times()
{
    QFETCH(QByteArray, line);
    const StatRecord record = recordOf(line);
    QTEST(record.utime, "utime");
    QTEST(record.stime, "stime");
    QTEST(record.cutime, "cutime");
    QTEST(record.cstime, "cstime");
}

void StatLineTest::shortLineIsFatal_data()
{
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("one field missing") << QByteArray("42 (daemon) S 1 1 1 0 -1 0 0 0 0 0 11 12 13");
    QTest::newRow("four missing") << QByteArray("42 (daemon) S 1 1 1 0 -1 0 0 0 0 0\n");
    QTest::newRow("state only") << QByteArray("42 (daemon) S\n");
    QTest::newRow("nothing after the name") << QByteArray("42 (daemon)");
    QTest::newRow("a number") << QByteArray("42");
    QTest::newRow("a line end") << QByteArray("\n");
    QTest::newRow("the fields are in the name")
        << QByteArray("42 (daemon S 1 1 1 0 -1 0 0 0 0 0 11 12 13 14 15)");
}

void StatLineTest::shortLineIsFatal()
{
    QFETCH(QByteArray, line);
    const ChildResult result = runInChild([&line] { recordOf(line); });
    QCOMPARE(result.signal, SIGABRT);
    QVERIFY2(result.standardError.contains("too few fields"), result.standardError.constData());
}

QTEST_GUILESS_MAIN(StatLineTest)
#include "tst_statline.moc"
