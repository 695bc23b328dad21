// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The file of the log processor: its rotation and its time lines.
#include "childrun.h"
#include "localtimezone.h"
#include "smallfilesystem.h"
#include "testfiles.h"
#include "testlog.h"

#include <QTemporaryDir>
#include <QtTest>

constexpr qint64 fourGiB = 4294967296;

/** A chunk, and when it is written, in milliseconds after the beginning of June 4. */
struct Written
{
    qint64 atMs;
    QByteArray chunk;
};
Q_DECLARE_METATYPE(QVector<Written>)

class LogFileTest : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void rotatesAtTheLimit_data();
    void rotatesAtTheLimit();
    void countStartsAgainAfterRotation();
    void onlyOneGenerationIsKept();
    void failedRenameEndsLoggingToTheFile();
    void logRemovedFromOutsideEndsLoggingToTheFile();
    void logReplacedFromOutsideIsRotatedAway();
    void rotationFreesAFullFileSystem();

    void timeLines_data();
    void timeLines();
    void oneTimeLineForAChunkOfManyLines();
    void timeLineCountsTowardsTheLimit();
    void chunkIsEchoedWhenItsTimeLineEndsLogging();

private:
    QByteArray rotationFailedLine() const;

    QScopedPointer<QTemporaryDir> m_directory;
    QString m_fileName;
    QString m_rotatedFileName;
};

void LogFileTest::init()
{
    QVERIFY(languageIsPlain);
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    m_fileName = m_directory->filePath(QStringLiteral("app.log"));
    m_rotatedFileName = m_fileName + QStringLiteral(".0");
}

QByteArray LogFileTest::rotationFailedLine() const
{
    const QByteArray name = m_fileName.toUtf8();
    return "Can't rename file from:" + name + " to:" + name + ".0\n";
}

// ---- Rotation

void LogFileTest::rotatesAtTheLimit_data()
{
    QTest::addColumn<qint64>("existing");
    QTest::addColumn<quint32>("limit");
    QTest::addColumn<int>("written");
    QTest::addColumn<bool>("rotated");
    const auto row = [](const char *what, qint64 existing, quint32 limit, int written,
                        bool rotated) {
        QTest::newRow(what) << existing << limit << written << rotated;
    };
    row("one byte below", 0, 1000, 999, false);
    row("exactly", 0, 1000, 1000, true);
    row("what crosses the limit stays whole", 0, 1000, 5000, true);
    row("what is there counts: one byte below", 900, 1000, 99, false);
    row("what is there counts: above", 900, 1000, 200, true);
    row("what is there already exceeds the limit", 2000, 1000, 1, true);
    row("the size is taken modulo 32 bits: below", fourGiB + 900, 1000, 99, false);
    row("the size is taken modulo 32 bits: exactly", fourGiB + 900, 1000, 100, true);
    row("the count wraps, and the limit is unsigned", fourGiB - 10, 4294967295U, 20, false);
}

void LogFileTest::rotatesAtTheLimit()
{
    QFETCH(qint64, existing);
    QFETCH(quint32, limit);
    QFETCH(int, written);
    QFETCH(bool, rotated);
    writeFile(m_fileName, QByteArray());
    QVERIFY(QFile::resize(m_fileName, existing));
    OpenLog log(m_fileName, limit);
    QVERIFY(!QFile::exists(m_rotatedFileName));
    log.write(QByteArray(written, 'x'));
    QCOMPARE(QFile::exists(m_rotatedFileName), rotated);
    log.processor.flushOutput();
    QVERIFY(QFile::exists(m_fileName));
    QCOMPARE(QFileInfo(m_fileName).size(), rotated ? 0 : existing + written);
    if (rotated)
        QCOMPARE(QFileInfo(m_rotatedFileName).size(), existing + written);
}

void LogFileTest::countStartsAgainAfterRotation()
{
    OpenLog log(m_fileName, 1000);
    log.write(QByteArray(1500, 'a'));
    log.write(QByteArray(999, 'b'));
    QCOMPARE(readFile(m_rotatedFileName), QByteArray(1500, 'a'));
    QCOMPARE(log.text(), QByteArray(999, 'b'));
    log.write("c");
    QCOMPARE(readFile(m_rotatedFileName), QByteArray(999, 'b') + 'c');
}

void LogFileTest::onlyOneGenerationIsKept()
{
    writeFile(m_rotatedFileName, "from the last run\n");
    OpenLog log(m_fileName, 10);
    for (const char *text : {"first one\n", "second one\n", "third one\n"})
        log.write(text);
    QCOMPARE(readFile(m_rotatedFileName), QByteArray("third one\n"));
    QCOMPARE(QDir(m_directory->path()).entryList(QDir::Files),
             QStringList({QStringLiteral("app.log"), QStringLiteral("app.log.0")}));
}

void LogFileTest::failedRenameEndsLoggingToTheFile()
{
    QVERIFY(QDir().mkdir(m_rotatedFileName)); // a directory is in the way
    const ChildResult result = runInChild([this] {
        OpenLog log(m_fileName, 10);
        log.write("to the file\n");
        log.write("echoed\n");
        log.processor.flushOutput();
        log.write(QByteArray(2000, '.'));
        log.processor.flushOutput();
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardError, rotationFailedLine());
    QCOMPARE(readFile(m_fileName), QByteArray("to the file\n"));
    QCOMPARE(result.standardOutput, "echoed\n" + QByteArray(2000, '.'));
}

void LogFileTest::logRemovedFromOutsideEndsLoggingToTheFile()
{
    writeFile(m_rotatedFileName, "older");
    const ChildResult result = runInChild([this] {
        OpenLog log(m_fileName, 10);
        QFile::remove(m_fileName);
        log.write("gone with the file\n");
        log.write("echoed\n");
    });
    QCOMPARE(result.standardError, rotationFailedLine());
    QCOMPARE(result.standardOutput, QByteArray("echoed\n"));
    QVERIFY(!QFile::exists(m_fileName));
    QVERIFY(!QFile::exists(m_rotatedFileName)); // the rotation removed it
}

void LogFileTest::logReplacedFromOutsideIsRotatedAway()
{
    OpenLog log(m_fileName, 10);
    QVERIFY(QFile::remove(m_fileName));
    writeFile(m_fileName, "not ours");
    log.write("gone with the file\n");
    log.write("new\n");
    QCOMPARE(readFile(m_rotatedFileName), QByteArray("not ours"));
    QCOMPARE(log.text(), QByteArray("new\n"));
}

// Lost bytes count too, so a full file is rotated. The rotation first removes the older generation.
void LogFileTest::rotationFreesAFullFileSystem()
{
    const SmallFileSystem fileSystem(m_directory->path());
    if (!fileSystem.isMounted())
        QSKIP("needs the right to mount a file system");
    writeFile(m_rotatedFileName, QByteArray(40 * kiB, 'o'));

    // There is room for 24 KiB. The other 24 KiB wait in the buffer or are lost.
    OpenLog log(m_fileName, 48 * kiB);
    for (int i = 0; i < 47; ++i)
        log.write(QByteArray(kiB, 'n'));
    QCOMPARE(log.text().size(), static_cast<int>(24 * kiB));
    QCOMPARE(QFileInfo(m_rotatedFileName).size(), 40 * kiB);

    log.write(QByteArray(kiB, 'n'));
    const qint64 kept = QFileInfo(m_rotatedFileName).size();
    QVERIFY(kept > 24 * kiB); // the buffer took the older generation's place
    QVERIFY(kept < 48 * kiB);

    log.write("room again\n");
    QCOMPARE(log.text(), QByteArray("room again\n"));
}

// ---- Time lines

void LogFileTest::timeLines_data()
{
    QTest::addColumn<QVector<Written>>("chunks");
    QTest::addColumn<QByteArray>("log");

    QTest::newRow("once a second")
        << QVector<Written>{{0, "at 0 ms\n"}, {999, "at 999 ms\n"}, {1000, "at 1000 ms\n"}}
        << june4Line + "at 0 ms\nat 999 ms\n" + oneSecondLaterLine + "at 1000 ms\n";
    QTest::newRow("only at the start of a line")
        << QVector<Written>{{0, "whole\nbegun, "}, {1000, "ended\n"}, {1000, "next\n"}}
        << june4Line + "whole\nbegun, ended\n" + oneSecondLaterLine + "next\n";
    QTest::newRow("an empty chunk is no end of a line")
        << QVector<Written>{{0, "one\n"}, {0, ""}, {1000, "two\n"}} << june4Line + "one\ntwo\n";
    QTest::newRow("also when the clock is set back")
        << QVector<Written>{{1000, "one\n"}, {0, "two\n"}}
        << oneSecondLaterLine + "one\n" + june4Line + "two\n";
    QTest::newRow("a day of two digits")
        << QVector<Written>{{(13 * 86400 + 47655) * 1000LL, "one\n"}}
        << QByteArray("-- Time: Wed Jun 17 13:14:15 2026 GMT\none\n");
    // A board without a real-time clock starts in 1970.
    QTest::newRow("none in the first second of the epoch")
        << QVector<Written>{{999 - june4Ms, "one\n"}, {1000 - june4Ms, "two\n"}}
        << QByteArray("one\n-- Time: Thu Jan 1 00:00:01 1970 GMT\ntwo\n");
}

void LogFileTest::timeLines()
{
    QFETCH(QVector<Written>, chunks);
    QFETCH(QByteArray, log);
    const LocalTimeZone zone("<+05>-05");
    OpenLog written(m_fileName, roomy, true);
    for (const Written &each : chunks) {
        written.nowMs = june4Ms + each.atMs;
        written.write(each.chunk);
    }
    QCOMPARE(written.text(), log);
}

void LogFileTest::oneTimeLineForAChunkOfManyLines()
{
    OpenLog log(m_fileName, roomy, true);
    log.stepMs = 1000;
    log.write("one\ntwo\nthree\n");
    QCOMPARE(log.text(), june4Line + "one\ntwo\nthree\n");
}

void LogFileTest::timeLineCountsTowardsTheLimit()
{
    OpenLog log(m_fileName, static_cast<quint32>(june4Line.size()) + 4, true);
    log.write("one\n");
    QCOMPARE(readFile(m_rotatedFileName), june4Line + "one\n");

    // A time line can cause the rotation by itself, before its chunk.
    log.nowMs += 1000;
    log.write("two");
    log.nowMs += 1000;
    log.processor.flushOutput();
    log.write("three\n");
    QCOMPARE(readFile(m_rotatedFileName).left(june4Line.size() + 3), oneSecondLaterLine + "two");
    QCOMPARE(log.text(), QByteArray("three\n"));
}

void LogFileTest::chunkIsEchoedWhenItsTimeLineEndsLogging()
{
    QVERIFY(QDir().mkdir(m_rotatedFileName)); // a directory is in the way
    const ChildResult result = runInChild([this] {
        OpenLog log(m_fileName, 10, true);
        log.write("longer than the limit\n");
        log.write("next\n");
    });
    QCOMPARE(result.standardError, rotationFailedLine());
    QCOMPARE(result.standardOutput, QByteArray("longer than the limit\nnext\n"));
    QCOMPARE(readFile(m_fileName), june4Line);
}

QTEST_GUILESS_MAIN(LogFileTest)
#include "tst_logfile.moc"
