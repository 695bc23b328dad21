// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/commandline.h"

#include <QtTest>

// tests/system tests sizes from the settings and the usage text.
class CommandLineTest : public QObject
{
    Q_OBJECT

private slots:
    void defaults();
    void options_data();
    void options();
};

namespace {

QStringList words(const char *line)
{
    return QString::fromUtf8(line).split(QLatin1Char(' '));
}

// The parsed options as one text that is easy to compare.
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
    row("a size beyond signed 32 bits", "--logfileSize 3000M --app prog",
        "name= size=3145728000 time=0 rotate=0 single=0 user= app=prog args=");
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

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_commandline.moc"
