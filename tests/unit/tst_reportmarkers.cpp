// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "logging/reportmarkers.h"

#include <QtTest>

class ReportMarkersTest : public QObject
{
    Q_OBJECT

private slots:
    void request_data();
    void request();
};

void ReportMarkersTest::request_data()
{
    QTest::addColumn<QByteArray>("chunk");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("str");

    const QString none;
    const QString log = QStringLiteral("/tmp/x.log");
    const QString crash = QStringLiteral("crash");
    const QString oops = QStringLiteral("oops");

    QTest::newRow("empty chunk") << QByteArray() << none << none;
    QTest::newRow("no marker") << QByteArray("all is well\n") << none << none;
    QTest::newRow("no whole marker")
        << QByteArray("==Report=oops\n=Report==oops\n") << none << none;
    QTest::newRow("markers are case-sensitive")
        << QByteArray("==report==oops\n==REPORT FILE:/tmp/x.log==crash\n") << none << none;

    QTest::newRow("file and name")
        << QByteArray("==Report file:/tmp/x.log==crash\n") << log << crash;
    QTest::newRow("name alone") << QByteArray("==Report==oops\n") << none << oops;
    QTest::newRow("file alone asks for nothing")
        << QByteArray("==Report file:/tmp/x.log\n") << log << none;
    QTest::newRow("file and an empty name asks for nothing")
        << QByteArray("==Report file:/tmp/x.log==\n") << log << none;
    QTest::newRow("a name for an empty file")
        << QByteArray("==Report file:==crash\n") << none << crash;
    QTest::newRow("bare file marker") << QByteArray("==Report file:") << none << none;
    QTest::newRow("bare name marker") << QByteArray("==Report==") << none << none;

    QTest::newRow("inside a line, file form")
        << QByteArray("12:00 E: ==Report file:/tmp/x.log==crash\nmore\n") << log << crash;
    QTest::newRow("inside a line, name form")
        << QByteArray("before\n12:00 E: ==Report==oops\nmore\n") << none << oops;
    QTest::newRow("up to the end of the chunk, file form")
        << QByteArray("==Report file:/tmp/x.log==crash") << log << crash;
    QTest::newRow("up to the end of the chunk, name form")
        << QByteArray("==Report==oops") << none << oops;
    QTest::newRow("a line end before the marker does not count")
        << QByteArray("\n\n==Report==oops\n") << none << oops;
    QTest::newRow("blanks stay") << QByteArray("==Report== disk full! \n") << none
                                 << QStringLiteral(" disk full! ");
    QTest::newRow("a carriage return stays, file form")
        << QByteArray("==Report file:/tmp/x.log==crash\r\n") << log << QStringLiteral("crash\r");
    QTest::newRow("a carriage return stays, name form")
        << QByteArray("==Report==oops\r\n") << none << QStringLiteral("oops\r");

    QTest::newRow("only the first of two file markers counts")
        << QByteArray("==Report file:/tmp/x.log==crash\n==Report file:/tmp/y.log==second\n") << log
        << crash;
    QTest::newRow("only the first of two name markers counts")
        << QByteArray("==Report==oops\n==Report==second\n") << none << oops;
    QTest::newRow("a first marker without a name hides the second")
        << QByteArray("==Report==\n==Report==second\n") << none << none;
    QTest::newRow("further file markers in the line are removed")
        << QByteArray("==Report file:/tmp/==Report file:x.log==cr==Report file:ash\n") << log
        << crash;
    QTest::newRow("further name markers in the line are removed")
        << QByteArray("==Report==oo==Report==ps==Report==\n") << none << oops;
    QTest::newRow("what follows a second separator is dropped")
        << QByteArray("==Report file:/tmp/x.log==crash==now==here\n") << log << crash;
    QTest::newRow("empty parts are kept")
        << QByteArray("==Report file:/tmp/x.log====crash\n") << log << none;

    QTest::newRow("both forms: the file of the one, the name of the other")
        << QByteArray("==Report file:/tmp/x.log==crash\n==Report==oops\n") << log << oops;
    QTest::newRow("both forms, the other way round")
        << QByteArray("==Report==oops\n==Report file:/tmp/x.log==crash\n") << log << oops;
    QTest::newRow("an empty name of the second form replaces that of the first")
        << QByteArray("==Report file:/tmp/x.log==crash\n==Report==\n") << log << none;
    QTest::newRow("both forms in one line")
        << QByteArray("==Report file:/tmp/x.log==Report==oops\n") << log << oops;

    QTest::newRow("UTF-8, file form")
        << QByteArray("==Report file:/tmp/gr\xc3\xb6\xc3\x9f"
                      "e==\xe2\x82\xac\n")
        << QStringLiteral("/tmp/gr\u00f6\u00dfe") << QStringLiteral("\u20ac");
    QTest::newRow("UTF-8, name form")
        << QByteArray("==Report==\xc3\xbc\n") << none << QStringLiteral("\u00fc");
    QTest::newRow("what is not UTF-8 is replaced") << QByteArray("==Report==a\xff"
                                                                 "b\n")
                                                   << none << QStringLiteral("a\ufffdb");
    QTest::newRow("a name ends at a NUL byte")
        << QByteArray("==Report==oops\0more\n", 20) << none << oops;
    QTest::newRow("a file ends at a NUL byte, and with it the line")
        << QByteArray("==Report file:/tmp/x.log\0==crash\n", 33) << log << none;
    QTest::newRow("a name ends with its chunk, whatever lies behind that in memory")
        << QByteArray::fromRawData("==Report==oops and more", 14) << none << oops;
    QTest::newRow("a marker after a NUL byte is found")
        << QByteArray("a\0b\n==Report==oops\n", 19) << none << oops;
}

void ReportMarkersTest::request()
{
    QFETCH(QByteArray, chunk);
    QFETCH(QString, file);
    QFETCH(QString, str);
    const ReportRequest request = findReportRequest(chunk);
    QCOMPARE(request.file, file);
    QCOMPARE(request.str, str);
}

QTEST_GUILESS_MAIN(ReportMarkersTest)
#include "tst_reportmarkers.moc"
