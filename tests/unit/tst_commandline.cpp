// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/commandline.h"
#include "childrun.h"

#include <QtTest>

#include <csignal>

class CommandLineTest : public QObject
{
    Q_OBJECT

private slots:
    void defaults();
    void options_data();
    void options();
    void logSize_data();
    void logSize();
    void sizeFromTheSettings();
    void anEmptySizeEndsTheProgram();
    void usage();
};

namespace {

QStringList words(const char *line)
{
    return QString::fromUtf8(line).split(QLatin1Char(' '));
}

// What the options say, in one text that is easy to compare.
QString described(const CommandLine &line)
{
    return QStringLiteral("name=%1 size=%2 time=%3 rotate=%4 single=%5 user=%6 app=%7 args=%8")
        .arg(line.logFileName, QString::number(line.logSize), QString::number(line.logTime ? 1 : 0),
             QString::number(line.rotateOnly ? 1 : 0), QString::number(line.singleRun ? 1 : 0),
             line.userName, line.appPath, line.appArgs.join(QLatin1Char(',')));
}

} // namespace

void CommandLineTest::defaults()
{
    QCOMPARE(described(parseCommandLine({})),
             QStringLiteral("name= size=0 time=0 rotate=0 single=0 user= app= args="));
}

void CommandLineTest::options_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const char *line, const char *expected) {
        QTest::newRow(name) << words(line) << QString::fromUtf8(expected);
    };

    row("application alone", "--app prog",
        "name= size=0 time=0 rotate=0 single=0 user= app=prog args=");
    row("every option",
        "--logfileName l.log --logfileSize 2k --logTime --rotateOnly --singleRun --user bob "
        "--app prog -v",
        "name=l.log size=2048 time=1 rotate=1 single=1 user=bob app=prog args=-v");
    row("in another order",
        "--user bob --singleRun --logfileSize 2k --rotateOnly --logfileName l.log --logTime "
        "--app prog -v",
        "name=l.log size=2048 time=1 rotate=1 single=1 user=bob app=prog args=-v");
    row("what follows the application is its own", "--app prog --singleRun -v --logfileName x",
        "name= size=0 time=0 rotate=0 single=0 user= app=prog args=--singleRun,-v,--logfileName,x");
    row("a second --app belongs to the application", "--app a --app b",
        "name= size=0 time=0 rotate=0 single=0 user= app=a args=--app,b");
    row("unknown words are ignored", "what --ever --logTime -x --app prog",
        "name= size=0 time=1 rotate=0 single=0 user= app=prog args=");
    row("options are compared case-sensitively", "--LogTime --singlerun --SINGLERUN --app prog",
        "name= size=0 time=0 rotate=0 single=0 user= app=prog args=");
    row("options are compared whole", "--logTimes --single --app prog",
        "name= size=0 time=0 rotate=0 single=0 user= app=prog args=");
    row("a value may look like an option", "--logfileName --singleRun --app prog",
        "name=--singleRun size=0 time=0 rotate=0 single=0 user= app=prog args=");
    row("a value may be --app", "--user --app prog",
        "name= size=0 time=0 rotate=0 single=0 user=--app app= args=");
    row("the later value wins", "--user a --user b --app prog",
        "name= size=0 time=0 rotate=0 single=0 user=b app=prog args=");
    row("the later size wins", "--logfileSize 1k --logfileSize 2k --app prog",
        "name= size=2048 time=0 rotate=0 single=0 user= app=prog args=");
    row("without --app nothing is the application's", "--singleRun prog -v",
        "name= size=0 time=0 rotate=0 single=1 user= app= args=");
    row("--app without a value", "--logTime --app",
        "name= size=0 time=1 rotate=0 single=0 user= app= args=");
    row("--logfileName without a value", "--logTime --logfileName",
        "name= size=0 time=1 rotate=0 single=0 user= app= args=");
    row("--logfileSize without a value", "--logTime --logfileSize",
        "name= size=0 time=1 rotate=0 single=0 user= app= args=");
    row("--logfileSizeConf without a value", "--logTime --logfileSizeConf",
        "name= size=0 time=1 rotate=0 single=0 user= app= args=");
    row("--user without a value", "--logTime --user",
        "name= size=0 time=1 rotate=0 single=0 user= app= args=");
    row("a flag at the end", "--logfileName l --singleRun",
        "name=l size=0 time=0 rotate=0 single=1 user= app= args=");
}

void CommandLineTest::options()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, expected);
    QCOMPARE(described(parseCommandLine(arguments)), expected);
}

void CommandLineTest::logSize_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<quint32>("bytes");

    QTest::newRow("kilo") << QStringLiteral("512k") << 524288U;
    QTest::newRow("mega") << QStringLiteral("2M") << 2097152U;
    QTest::newRow("no suffix loses the last digit") << QStringLiteral("1000") << 100U;
    QTest::newRow("1k") << QStringLiteral("1k") << 1024U;
    QTest::newRow("beyond signed 32 bits") << QStringLiteral("3000M") << 3145728000U;
}

void CommandLineTest::logSize()
{
    QFETCH(QString, value);
    QFETCH(quint32, bytes);
    const CommandLine line = parseCommandLine(
        {QStringLiteral("--logfileSize"), value, QStringLiteral("--app"), QStringLiteral("x")});
    QCOMPARE(line.logSize, bytes);
}

void CommandLineTest::sizeFromTheSettings()
{
    // The test's own directory holds no settings, so that every name gives 0 here; what matters is
    // that the later of the two options wins.
    QCOMPARE(parseCommandLine(words("--logfileSize 1M --logfileSizeConf any --app x")).logSize, 0U);
    QCOMPARE(parseCommandLine(words("--logfileSizeConf any --logfileSize 1M --app x")).logSize,
             1048576U);
}

void CommandLineTest::anEmptySizeEndsTheProgram()
{
    const ChildResult result = runInChild([] {
        parseCommandLine({QStringLiteral("--logfileSize"), QString(), QStringLiteral("--app"),
                          QStringLiteral("x")});
    });
    QCOMPARE(result.signal, SIGABRT);
    QVERIFY(result.standardError.contains("ASSERT"));
}

void CommandLineTest::usage()
{
    const ChildResult result = runInChild(printUsage);
    const QByteArray expected =
        "Usage: watchdog executable [args] --app <app> [appargs]\n"
        "args:\n"
        "\t--logfileName absolute or relative path where the logs will be stored\n"
        "\t--logfileSize maximal size of log file, size can be postfixed with 'k' for kB or 'M' for MB\n"
        "\t--logfileSizeConf name of the configuration read from settings\n"
        "\t--logTime add current time in front of new line, if time in seconds changed\n"
        "\t--rotateOnly do not handle hw watchdog, system usage and reports\n"
        "\t--singleRun do not restart app on finish\n"
        "\t--user run application as the specified user\n"
        "app: name or path to executed application\n"
        "appargs: arguments for executed application\n";
    QCOMPARE(result.standardError, expected);
    QCOMPARE(result.standardOutput, QByteArray());
}

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_commandline.moc"
