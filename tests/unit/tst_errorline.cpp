// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "common/errorline.h"

#include <QtTest>

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

class ErrorLineTest : public QObject
{
    Q_OBJECT

private slots:
    void linesEndAndAreUtf8();
    void lineIsFlushedAtOnce();
    void lineThatCannotBeWrittenIsLost();
};

void ErrorLineTest::linesEndAndAreUtf8()
{
    const ChildResult result = runInChild([] {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
        writeErrorLine(QStringLiteral("gr\u00f6\u00dfe: 100 %s \u20ac"));
        writeErrorLine(QString());
        writeErrorLine(QStringLiteral("last"));
    });
    QCOMPARE(result.standardError,
             QByteArray("gr\xc3\xb6\xc3\x9f"
                        "e: 100 %s \xe2\x82\xac\n\nlast\n"));
    QCOMPARE(result.standardOutput, QByteArray());
}

void ErrorLineTest::lineIsFlushedAtOnce()
{
    const ChildResult result = runInChild([] {
        static char buffer[BUFSIZ];
        std::setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
        writeErrorLine(QStringLiteral("urgent"));
        ::_exit(0);
    });
    QCOMPARE(result.standardError, QByteArray("urgent\n"));
}

void ErrorLineTest::lineThatCannotBeWrittenIsLost()
{
    const ChildResult result = runInChild([] {
        const int before = ::dup(STDERR_FILENO);
        const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
        ::dup2(full, STDERR_FILENO);
        writeErrorLine(QStringLiteral("lost"));
        ::dup2(before, STDERR_FILENO);
        writeErrorLine(QStringLiteral("written"));
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardError, QByteArray("written\n"));
}

QTEST_GUILESS_MAIN(ErrorLineTest)
#include "tst_errorline.moc"
