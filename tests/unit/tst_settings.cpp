// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "logging/settings.h"
#include "testfiles.h"

#include <QtTest>

#include <initializer_list>

#include <unistd.h>

namespace {

const QString documentName = QStringLiteral("Document.json");
const QString sizesName = QStringLiteral("SystemManagerLogFilesSizeConfig.json");

// What QString::at() asserts for the last character of an empty text.
const char noLastCharacter[] = "uint(i) < uint(size())";

// The file that holds `payload`, which is JSON.
QByteArray document(const QByteArray &payload)
{
    return R"({"value": {"type": "payload", "payload": )" + payload + "}}";
}

} // namespace

class SettingsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void payload_data();
    void payload();
    void payloadTypes();
    void textIsUtf8InEveryLocale();
    void missingAndUnreadableFilesAreSilent();

    void siteComesBeforeFactory_data();
    void siteComesBeforeFactory();
    void everyValueOfTheSiteCounts_data();
    void everyValueOfTheSiteCounts();
    void membersAreNotMerged();
    void nameMayBeAPath();
    void missingDocumentsAreSilent();

    void logFileSize_data();
    void logFileSize();
    void entryWithoutTextIsFatal_data();
    void entryWithoutTextIsFatal();

    void size_data();
    void size();
    void emptySizeIsFatal();

private:
    QString path(const QString &name) const { return m_directory.filePath(name); }
    void writeSite(const QString &name, const QByteArray &content);
    void writeFactory(const QString &name, const QByteArray &content);
    ChildResult runProbe(const QByteArray &command, const QString &value) const;

    QTemporaryDir m_directory; // with the probe, as if it were the program, and its settings
};

void SettingsTest::initTestCase()
{
    QVERIFY(m_directory.isValid());
    QVERIFY(QFile::copy(QStringLiteral(SETTINGS_PROBE), path(QStringLiteral("probe"))));
}

void SettingsTest::init()
{
    cleanup();
}

void SettingsTest::cleanup()
{
    QDir(path(QStringLiteral("settings"))).removeRecursively();
    QDir(path(QStringLiteral("settings-default"))).removeRecursively();
}

void SettingsTest::writeSite(const QString &name, const QByteArray &content)
{
    writeFile(path(QStringLiteral("settings/") + name), content);
}

void SettingsTest::writeFactory(const QString &name, const QByteArray &content)
{
    writeFile(path(QStringLiteral("settings-default/") + name), content);
}

ChildResult SettingsTest::runProbe(const QByteArray &command, const QString &value) const
{
    const QByteArray program = path(QStringLiteral("probe")).toUtf8();
    const QByteArray argument = value.toUtf8();
    return runInChild([&] {
        // Far from the settings: it is not the current directory that counts.
        if (::chdir("/") == 0)
            ::execl(program.constData(), program.constData(), command.constData(),
                    argument.constData(), static_cast<char *>(nullptr));
        ::_exit(127);
    });
}

// ---- One file

void SettingsTest::payload_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QVariant>("expected");

    const QVariant none;
    const QVariant x = QStringLiteral("x");

    QTest::newRow("named by the type") << QByteArray(R"({"value": {"type": "t", "t": "x"}})") << x;
    QTest::newRow("the type may be any text")
        << QByteArray(R"({"value": {"type": "my own \u00fc", "my own \u00fc": "x"}})") << x;
    QTest::newRow("the type may name itself")
        << QByteArray(R"({"value": {"type": "type"}})") << QVariant(QStringLiteral("type"));
    QTest::newRow("other members of the envelope are ignored")
        << QByteArray(R"({"value": {"s": 1, "type": "t", "t": "x", "u": "y"}})") << x;
    QTest::newRow("other members of the top are ignored")
        << QByteArray(R"({"type": "u", "u": "y", "value": {"type": "t", "t": "x"}, "t": "z"})")
        << x;
    QTest::newRow("layout does not matter")
        << QByteArray("\r\n{\t\"value\" :\r\n{\"type\":\"t\",\"t\":\"x\"}\r\n}\r\n") << x;
    QTest::newRow("a line end inside a text is a line feed")
        << QByteArray("{\"value\": {\"type\": \"t\", \"t\": \"x\r\ny\"}}")
        << QVariant(QStringLiteral("x\ny"));
    QTest::newRow("a byte order mark is no part of the text")
        << QByteArray("\xef\xbb\xbf{\"value\": {\"type\": \"t\", \"t\": \"x\"}}") << x;

    QTest::newRow("a type that is a number is read as text")
        << QByteArray(R"({"value": {"type": 7, "7": "x"}})") << x;
    QTest::newRow("a type that is a truth value is read as text")
        << QByteArray(R"({"value": {"type": true, "true": "x"}})") << x;
    QTest::newRow("a type that is no text names the member without a name")
        << QByteArray(R"({"value": {"type": {"t": 1}, "": "x", "t": "y"}})") << x;
    QTest::newRow("so does a missing type") << QByteArray(R"({"value": {"": "x", "t": "y"}})") << x;
    QTest::newRow("a missing type and no such member")
        << QByteArray(R"({"value": {"t": "x"}})") << none;
    QTest::newRow("the type names a missing member")
        << QByteArray(R"({"value": {"type": "t", "u": "x"}})") << none;
    QTest::newRow("member names are case-sensitive")
        << QByteArray(R"({"value": {"type": "t", "T": "x"}})") << none;
    QTest::newRow("the payload is null")
        << QByteArray(R"({"value": {"type": "t", "t": null}})") << none;

    QTest::newRow("no value") << QByteArray(R"({"Value": {"type": "t", "t": "x"}})") << none;
    QTest::newRow("no envelope") << QByteArray(R"({"type": "t", "t": "x"})") << none;
    QTest::newRow("the envelope is a text") << QByteArray(R"({"value": "t"})") << none;
    QTest::newRow("the envelope is a number") << QByteArray(R"({"value": 1})") << none;
    QTest::newRow("the envelope is a list")
        << QByteArray(R"({"value": [{"type": "t", "t": "x"}]})") << none;
    QTest::newRow("the envelope is null") << QByteArray(R"({"value": null})") << none;
    QTest::newRow("the top is a list")
        << QByteArray(R"([{"value": {"type": "t", "t": "x"}}])") << none;
    QTest::newRow("the top is a text") << QByteArray(R"("value")") << none;
    QTest::newRow("empty") << QByteArray() << none;
    QTest::newRow("cut off") << QByteArray(R"({"value": {"type": "t", "t": "x"})") << none;
    QTest::newRow("no JSON") << QByteArray("value = x\n") << none;
}

void SettingsTest::payload()
{
    QFETCH(QByteArray, content);
    QFETCH(QVariant, expected);
    writeSite(documentName, content);
    QCOMPARE(readSettingsFile(path(QStringLiteral("settings/") + documentName)), expected);
}

void SettingsTest::payloadTypes()
{
    writeSite(documentName, document(R"({"list": ["a", true, {"n": 1}], "text": "b"})"));
    const QVariantHash read =
        readSettingsFile(path(QStringLiteral("settings/") + documentName)).toHash();
    const QVariantHash inner = {{QStringLiteral("n"), 1}};
    const QVariantList list = {QStringLiteral("a"), true, inner};
    QCOMPARE(read.size(), 2);
    QCOMPARE(read.value(QStringLiteral("list")).toList(), list);
    QCOMPARE(read.value(QStringLiteral("text")), QVariant(QStringLiteral("b")));
}

// The locale of a device is often plain C.
void SettingsTest::textIsUtf8InEveryLocale()
{
    writeSite(documentName,
              document("\"gr\xc3\xb6\xc3\x9f"
                       "e \xe2\x82\xac\""));
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    const QVariant read = readSettingsFile(path(QStringLiteral("settings/") + documentName));
    QTextCodec::setCodecForLocale(nullptr);
    QCOMPARE(read, QVariant(QStringLiteral("gr\u00f6\u00dfe \u20ac")));
}

void SettingsTest::missingAndUnreadableFilesAreSilent()
{
    const ChildResult result = runInChild([this] {
        if (!readSettingsFile(path(QStringLiteral("missing"))).isNull()
            || !readSettingsFile(m_directory.path()).isNull())
            ::_exit(1);
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardOutput, QByteArray());
    QCOMPARE(result.standardError, QByteArray());
}

// ---- Site and factory

void SettingsTest::siteComesBeforeFactory_data()
{
    QTest::addColumn<QByteArray>("site");
    QTest::addColumn<QByteArray>("factory");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray site = document("\"site\"");
    const QByteArray factory = document("\"factory\"");

    QTest::newRow("both") << site << factory << QByteArray("[\"site\"]\n");
    QTest::newRow("site alone") << site << QByteArray() << QByteArray("[\"site\"]\n");
    QTest::newRow("factory alone") << QByteArray() << factory << QByteArray("[\"factory\"]\n");
    QTest::newRow("neither") << QByteArray() << QByteArray() << QByteArray("[null]\n");
    QTest::newRow("a site file without a value")
        << QByteArray(R"({"payload": "site"})") << factory << QByteArray("[\"factory\"]\n");
    QTest::newRow("a site file that names a missing member")
        << QByteArray(R"({"value": {"type": "a", "b": "site"}})") << factory
        << QByteArray("[\"factory\"]\n");
    QTest::newRow("a site file that says null")
        << document("null") << factory << QByteArray("[\"factory\"]\n");
    QTest::newRow("a malformed site file")
        << QByteArray("{") << factory << QByteArray("[\"factory\"]\n");
    QTest::newRow("a malformed factory file")
        << QByteArray() << QByteArray("{") << QByteArray("[null]\n");
}

void SettingsTest::siteComesBeforeFactory()
{
    QFETCH(QByteArray, site);
    QFETCH(QByteArray, factory);
    QFETCH(QByteArray, expected);
    if (!site.isEmpty())
        writeSite(documentName, site);
    if (!factory.isEmpty())
        writeFactory(documentName, factory);
    const ChildResult result = runProbe("document", documentName);
    QCOMPARE(result.standardOutput, expected);
    QCOMPARE(result.standardError, QByteArray());
}

void SettingsTest::everyValueOfTheSiteCounts_data()
{
    QTest::addColumn<QByteArray>("payload");
    for (const char *payload : {"false", "0", "\"\"", "[]", "{}"})
        QTest::newRow(payload) << QByteArray(payload);
}

// Only null is no value: a site can switch off what the factory has switched on.
void SettingsTest::everyValueOfTheSiteCounts()
{
    QFETCH(QByteArray, payload);
    writeSite(documentName, document(payload));
    writeFactory(documentName, document("\"factory\""));
    QCOMPARE(runProbe("document", documentName).standardOutput, '[' + payload + "]\n");
}

void SettingsTest::membersAreNotMerged()
{
    writeSite(documentName, document(R"({"a":"site"})"));
    writeFactory(documentName, document(R"({"a":"factory","b":"factory"})"));
    QCOMPARE(runProbe("document", documentName).standardOutput, QByteArray("[{\"a\":\"site\"}]\n"));
}

void SettingsTest::nameMayBeAPath()
{
    writeFactory(QStringLiteral("folder/") + documentName, document("1"));
    QCOMPARE(runProbe("document", QStringLiteral("folder/") + documentName).standardOutput,
             QByteArray("[1]\n"));
}

void SettingsTest::missingDocumentsAreSilent()
{
    const ChildResult result = runProbe("log-size", QStringLiteral("app"));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardOutput, QByteArray("0\n"));
    QCOMPARE(result.standardError, QByteArray());
}

// ---- The log-files-size document

void SettingsTest::logFileSize_data()
{
    QTest::addColumn<QByteArray>("sizes");
    QTest::addColumn<QString>("conf");
    QTest::addColumn<QByteArray>("bytes");

    const QString app = QStringLiteral("app");

    QTest::newRow("the name's own entry")
        << QByteArray(R"({"app": "512k", "default": "1M"})") << app << QByteArray("524288\n");
    QTest::newRow("an unknown name takes the default")
        << QByteArray(R"({"other": "512k", "default": "1M"})") << app << QByteArray("1048576\n");
    QTest::newRow("names are case-sensitive")
        << QByteArray(R"({"App": "512k", "default": "1M"})") << app << QByteArray("1048576\n");
    QTest::newRow("an unknown name without a default")
        << QByteArray(R"({"other": "512k"})") << app << QByteArray("0\n");
    QTest::newRow("the default by its own name")
        << QByteArray(R"({"default": "2m"})") << QStringLiteral("default")
        << QByteArray("2097152\n");
    QTest::newRow("a name that is no number is no size")
        << QByteArray(R"({"app": "big", "default": "1M"})") << app << QByteArray("0\n");
    QTest::newRow("an empty name is a name")
        << QByteArray(R"({"": "3k", "default": "1M"})") << QString() << QByteArray("3072\n");
    QTest::newRow("non-ASCII name") << QByteArray(R"({"gr\u00f6\u00dfe": "3k"})")
                                    << QStringLiteral("gr\u00f6\u00dfe") << QByteArray("3072\n");

    QTest::newRow("a number is its decimal text, which loses its last digit")
        << QByteArray(R"({"app": 1000})") << app << QByteArray("100\n");
    QTest::newRow("a large round number is written out, too")
        << QByteArray(R"({"app": 20000000})") << app << QByteArray("2000000\n");
    QTest::newRow("a number of one digit")
        << QByteArray(R"({"app": 5})") << app << QByteArray("0\n");
    QTest::newRow("a fraction loses its last digit and is no integer")
        << QByteArray(R"({"app": 1000.5})") << app << QByteArray("0\n");
    QTest::newRow("a default that is a number")
        << QByteArray(R"({"default": 2000})") << app << QByteArray("200\n");
    QTest::newRow("a truth value") << QByteArray(R"({"app": true})") << app << QByteArray("0\n");

    QTest::newRow("the size is unsigned")
        << QByteArray(R"({"app": "3000M"})") << app << QByteArray("3145728000\n");
    QTest::newRow("a negative size is a huge one")
        << QByteArray(R"({"app": "-1k"})") << app << QByteArray("4294966272\n");

    QTest::newRow("an empty table") << QByteArray("{}") << app << QByteArray("0\n");
    QTest::newRow("no table but a text") << QByteArray("\"1M\"") << app << QByteArray("0\n");
    QTest::newRow("no table but a list") << QByteArray("[\"1M\"]") << app << QByteArray("0\n");
}

void SettingsTest::logFileSize()
{
    QFETCH(QByteArray, sizes);
    QFETCH(QString, conf);
    QFETCH(QByteArray, bytes);
    writeSite(sizesName, document(sizes));
    const ChildResult result = runProbe("log-size", conf);
    QCOMPARE(result.standardOutput, bytes);
    QCOMPARE(result.standardError, QByteArray());
}

void SettingsTest::entryWithoutTextIsFatal_data()
{
    QTest::addColumn<QByteArray>("sizes");
    QTest::newRow("empty text") << QByteArray(R"({"app": "", "default": "1M"})");
    QTest::newRow("null") << QByteArray(R"({"app": null, "default": "1M"})");
    QTest::newRow("object") << QByteArray(R"({"app": {"size": "1M"}, "default": "1M"})");
    QTest::newRow("list") << QByteArray(R"({"app": ["1M", "2M"], "default": "1M"})");
    QTest::newRow("empty text as default") << QByteArray(R"({"default": ""})");
    QTest::newRow("null as default") << QByteArray(R"({"default": null})");
}

void SettingsTest::entryWithoutTextIsFatal()
{
    QFETCH(QByteArray, sizes);
    writeSite(sizesName, document(sizes));
    const ChildResult result = runProbe("log-size", QStringLiteral("app"));
    QVERIFY2(result.failedAssertion(noLastCharacter), result.standardError.constData());
}

// ---- Sizes

void SettingsTest::size_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint32>("bytes");

    QTest::newRow("kB") << QStringLiteral("512k") << 524288;
    QTest::newRow("kB in upper case") << QStringLiteral("512K") << 524288;
    QTest::newRow("MB") << QStringLiteral("2M") << 2097152;
    QTest::newRow("MB in lower case") << QStringLiteral("2m") << 2097152;
    QTest::newRow("the last digit is dropped") << QStringLiteral("1000") << 100;
    QTest::newRow("the last digit is dropped, whatever it is") << QStringLiteral("129") << 12;
    QTest::newRow("any other last character is dropped") << QStringLiteral("100b") << 100;
    QTest::newRow("a dropped blank") << QStringLiteral("100 ") << 100;
    QTest::newRow("one digit") << QStringLiteral("5") << 0;
    QTest::newRow("a suffix alone") << QStringLiteral("k") << 0;
    QTest::newRow("the other suffix alone") << QStringLiteral("M") << 0;
    QTest::newRow("nothing of something") << QStringLiteral("0k") << 0;
    QTest::newRow("leading zeros are decimal") << QStringLiteral("010k") << 10240;
    QTest::newRow("a plus sign") << QStringLiteral("+1k") << 1024;
    QTest::newRow("a minus sign") << QStringLiteral("-1k") << -1024;
    QTest::newRow("blanks around the number do not matter") << QStringLiteral(" 1 k") << 1024;

    QTest::newRow("a suffix before a blank is part of no number") << QStringLiteral("1k ") << 0;
    QTest::newRow("two suffixes") << QStringLiteral("1kk") << 0;
    QTest::newRow("a unit written out") << QStringLiteral("1kB") << 0;
    QTest::newRow("hexadecimal") << QStringLiteral("0x10k") << 0;
    QTest::newRow("a fraction") << QStringLiteral("1.5M") << 0;
    QTest::newRow("an exponent") << QStringLiteral("1e3k") << 0;
    QTest::newRow("grouped digits") << QStringLiteral("1,000k") << 0;
    QTest::newRow("a word") << QStringLiteral("huge") << 0;
    QTest::newRow("a blank") << QStringLiteral(" ") << 0;

    QTest::newRow("largest without wrapping") << QStringLiteral("2047M") << 2146435072;
    QTest::newRow("wraps to the smallest") << QStringLiteral("2048M") << (-2147483647 - 1);
    QTest::newRow("wraps to a negative number") << QStringLiteral("4095M") << -1048576;
    QTest::newRow("wraps to 0") << QStringLiteral("4096M") << 0;
    QTest::newRow("wraps round") << QStringLiteral("4097M") << 1048576;
    QTest::newRow("largest number") << QStringLiteral("2147483647k") << -1024;
    QTest::newRow("smallest number") << QStringLiteral("-2147483648b") << (-2147483647 - 1);
    QTest::newRow("no 32-bit number") << QStringLiteral("2147483649k") << 0;
    QTest::newRow("no 32-bit number below zero") << QStringLiteral("-2147483649k") << 0;
    QTest::newRow("far too large") << QStringLiteral("99999999999999999999k") << 0;
}

void SettingsTest::size()
{
    QFETCH(QString, text);
    QFETCH(qint32, bytes);
    QCOMPARE(parseSize(text), bytes);
}

void SettingsTest::emptySizeIsFatal()
{
    const ChildResult result = runInChild([] { parseSize(QString()); });
    QVERIFY2(result.failedAssertion(noLastCharacter), result.standardError.constData());
}

QTEST_GUILESS_MAIN(SettingsTest)
#include "tst_settings.moc"
