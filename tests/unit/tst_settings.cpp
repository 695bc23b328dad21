// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Settings lie beside the executable. So this program writes settings and copies itself beside
// them. The copy does not test. It looks up what its arguments say:
//
//   document NAME    prints a JSON list with the payload, [null] if there is none
//   log-size CONF    prints the number of bytes
#include "childrun.h"
#include "logging/settings.h"
#include "testfiles.h"

#include <QDir>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <cstdio>

#include <unistd.h>

namespace {

const QString documentName = QStringLiteral("folder/Document.json"); // a name may be a path
const QString sizesName = QStringLiteral("SystemManagerLogFilesSizeConfig.json");
const QString app = QStringLiteral("app");

const QString lookUpDocument = QStringLiteral("document");
const QString lookUpLogSize = QStringLiteral("log-size");

// The assertion in QString::at() that fails for the last character of an empty text.
const char noLastCharacter[] = "uint(i) < uint(size())";

// The file that holds `payload`, which is JSON.
QByteArray document(const QByteArray &payload)
{
    return R"({"value": {"type": "payload", "payload": )" + payload + "}}";
}

bool lookUp(const QString &what, const QString &name)
{
    if (what == lookUpDocument) {
        const QVariantList result = {readSettings(name)};
        std::puts(QJsonDocument::fromVariant(result).toJson(QJsonDocument::Compact).constData());
    } else if (what == lookUpLogSize) {
        std::printf("%u\n", logFileSizeFromConf(name));
    } else {
        return false;
    }
    return true;
}

} // namespace

class SettingsTest : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void payload_data();
    void payload();
    void textIsUtf8InEveryLocale();
    void missingAndUnreadableFilesAreSilent();

    void siteComesBeforeFactory_data();
    void siteComesBeforeFactory();

    void logFileSize_data();
    void logFileSize();
    void entryWithoutTextIsFatal_data();
    void entryWithoutTextIsFatal();

    void size_data();
    void size();
    void emptySizeIsFatal();

private:
    QString path(const QString &name) const { return m_directory->filePath(name); }
    QString sitePath(const QString &name) const { return path(QStringLiteral("settings/") + name); }
    ChildResult runCopy(const QString &what, const QString &name) const;

    QScopedPointer<QTemporaryDir> m_directory;
};

void SettingsTest::init()
{
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
}

ChildResult SettingsTest::runCopy(const QString &what, const QString &name) const
{
    const QByteArray program = path(QStringLiteral("copy")).toUtf8();
    if (!QFile::copy(QCoreApplication::applicationFilePath(), path(QStringLiteral("copy"))))
        qFatal("cannot copy this program");
    return runInChild([&] {
        // The settings are not in the current directory, which does not count.
        if (::chdir("/") == 0)
            ::execl(program.constData(), program.constData(), what.toUtf8().constData(),
                    name.toUtf8().constData(), static_cast<char *>(nullptr));
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
    QTest::newRow("the type may name itself")
        << QByteArray(R"({"value": {"type": "type"}})") << QVariant(QStringLiteral("type"));
    QTest::newRow("other members of the envelope and the top are ignored")
        << QByteArray(R"({"type": "u", "u": "y", "value": {"s": 1, "type": "t", "t": "x"}})") << x;
    QTest::newRow("layout does not matter")
        << QByteArray("\r\n{\t\"value\" :\r\n{\"type\":\"t\",\"t\":\"x\"}\r\n}\r\n") << x;
    QTest::newRow("a line end inside a text is a line feed")
        << QByteArray("{\"value\": {\"type\": \"t\", \"t\": \"x\r\ny\"}}")
        << QVariant(QStringLiteral("x\ny"));
    QTest::newRow("a byte order mark is no part of the text")
        << QByteArray("\xef\xbb\xbf{\"value\": {\"type\": \"t\", \"t\": \"x\"}}") << x;

    QTest::newRow("a type that is a number is read as text")
        << QByteArray(R"({"value": {"type": 7, "7": "x"}})") << x;
    QTest::newRow("a type that is no text names the member without a name")
        << QByteArray(R"({"value": {"type": {"t": 1}, "": "x", "t": "y"}})") << x;
    QTest::newRow("so does a missing type") << QByteArray(R"({"value": {"": "x", "t": "y"}})") << x;
    QTest::newRow("the type names a missing member")
        << QByteArray(R"({"value": {"type": "t", "T": "x"}})") << none;
    QTest::newRow("the payload is null")
        << QByteArray(R"({"value": {"type": "t", "t": null}})") << none;

    QTest::newRow("no value") << QByteArray(R"({"Value": {"type": "t", "t": "x"}})") << none;
    QTest::newRow("no envelope") << QByteArray(R"({"type": "t", "t": "x"})") << none;
    QTest::newRow("the envelope is a text") << QByteArray(R"({"value": "t"})") << none;
    QTest::newRow("the envelope is a list")
        << QByteArray(R"({"value": [{"type": "t", "t": "x"}]})") << none;
    QTest::newRow("the top is a list")
        << QByteArray(R"([{"value": {"type": "t", "t": "x"}}])") << none;
    QTest::newRow("empty") << QByteArray() << none;
    QTest::newRow("cut off") << QByteArray(R"({"value": {"type": "t", "t": "x"})") << none;
}

void SettingsTest::payload()
{
    QFETCH(QByteArray, content);
    QFETCH(QVariant, expected);
    writeFile(path(app), content);
    QCOMPARE(readSettingsFile(path(app)), expected);
}

// The locale of a device is often plain C.
void SettingsTest::textIsUtf8InEveryLocale()
{
    writeFile(path(app), document("\"gr\xc3\xbcn \xe2\x82\xac\""));
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    const QVariant read = readSettingsFile(path(app));
    QTextCodec::setCodecForLocale(nullptr);
    QCOMPARE(read, QVariant(QStringLiteral("gr\u00fcn \u20ac")));
}

void SettingsTest::missingAndUnreadableFilesAreSilent()
{
    const ChildResult result = runInChild([this] {
        if (!readSettingsFile(path(QStringLiteral("missing"))).isNull()
            || !readSettingsFile(m_directory->path()).isNull())
            ::_exit(1);
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardOutput, QByteArray());
    QCOMPARE(result.standardError, QByteArray());
}

// ---- Site and factory

void SettingsTest::siteComesBeforeFactory_data()
{
    QTest::addColumn<QByteArray>("site"); // null: there is no such file
    QTest::addColumn<QByteArray>("factory");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray missing;
    const QByteArray site = document(R"({"a":"site"})");
    const QByteArray factory = document(R"({"a":"factory","b":"factory"})");
    const QByteArray ofSite = "[{\"a\":\"site\"}]\n"; // the members of the two are not merged
    const QByteArray ofFactory = "[{\"a\":\"factory\",\"b\":\"factory\"}]\n";

    QTest::newRow("both") << site << factory << ofSite;
    QTest::newRow("site alone") << site << missing << ofSite;
    QTest::newRow("factory alone") << missing << factory << ofFactory;
    QTest::newRow("neither") << missing << missing << QByteArray("[null]\n");
    QTest::newRow("a site file without a value")
        << QByteArray(R"({"payload": "site"})") << factory << ofFactory;
    QTest::newRow("a site file that names a missing member")
        << QByteArray(R"({"value": {"type": "a", "b": "site"}})") << factory << ofFactory;
    QTest::newRow("a site file that says null") << document("null") << factory << ofFactory;
    QTest::newRow("a malformed site file") << QByteArray("{") << factory << ofFactory;
    QTest::newRow("malformed files")
        << QByteArray("{") << QByteArray("{") << QByteArray("[null]\n");
    // Only null counts as no value, so a site can switch off what the factory has switched on.
    for (const char *payload : {"false", "0", "\"\"", "[]"})
        QTest::newRow(payload) << document(payload) << factory << '[' + QByteArray(payload) + "]\n";
}

void SettingsTest::siteComesBeforeFactory()
{
    QFETCH(QByteArray, site);
    QFETCH(QByteArray, factory);
    QFETCH(QByteArray, expected);
    if (!site.isNull())
        writeFile(sitePath(documentName), site);
    if (!factory.isNull())
        writeFile(path(QStringLiteral("settings-default/") + documentName), factory);
    const ChildResult result = runCopy(lookUpDocument, documentName);
    QCOMPARE(result.standardOutput, expected);
    QCOMPARE(result.standardError, QByteArray());
}

// ---- The log-files-size document

void SettingsTest::logFileSize_data()
{
    QTest::addColumn<QByteArray>("sizes");
    QTest::addColumn<QString>("conf");
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("the name's own entry")
        << QByteArray(R"({"app": "512k", "default": "1M"})") << app << QByteArray("524288\n");
    QTest::newRow("an unknown name takes the default; names are case-sensitive")
        << QByteArray(R"({"App": "512k", "default": "1M"})") << app << QByteArray("1048576\n");
    QTest::newRow("an unknown name without a default")
        << QByteArray(R"({"other": "512k"})") << app << QByteArray("0\n");
    QTest::newRow("an entry that is no size does not take the default")
        << QByteArray(R"({"app": "big", "default": "1M"})") << app << QByteArray("0\n");
    QTest::newRow("an empty name is a name")
        << QByteArray(R"({"": "3k", "default": "1M"})") << QString() << QByteArray("3072\n");

    QTest::newRow("a number is its decimal text, which loses its last digit")
        << QByteArray(R"({"app": 20000000})") << app << QByteArray("2000000\n");
    QTest::newRow("a default that is a number")
        << QByteArray(R"({"default": 2000})") << app << QByteArray("200\n");
    QTest::newRow("a truth value") << QByteArray(R"({"app": true})") << app << QByteArray("0\n");
    QTest::newRow("the size is unsigned")
        << QByteArray(R"({"app": "3000M"})") << app << QByteArray("3145728000\n");
    QTest::newRow("a negative size is a huge one")
        << QByteArray(R"({"app": "-1k"})") << app << QByteArray("4294966272\n");
    QTest::newRow("no table but a text") << QByteArray("\"1M\"") << app << QByteArray("0\n");
}

void SettingsTest::logFileSize()
{
    QFETCH(QByteArray, sizes);
    QFETCH(QString, conf);
    QFETCH(QByteArray, bytes);
    writeFile(sitePath(sizesName), document(sizes));
    const ChildResult result = runCopy(lookUpLogSize, conf);
    QCOMPARE(result.standardOutput, bytes);
    QCOMPARE(result.standardError, QByteArray());
}

void SettingsTest::entryWithoutTextIsFatal_data()
{
    QTest::addColumn<QByteArray>("sizes");
    QTest::newRow("empty text") << QByteArray(R"({"app": "", "default": "1M"})");
    QTest::newRow("null") << QByteArray(R"({"app": null, "default": "1M"})");
    QTest::newRow("object") << QByteArray(R"({"app": {"size": "1M"}, "default": "1M"})");
    QTest::newRow("empty text as default") << QByteArray(R"({"default": ""})");
}

void SettingsTest::entryWithoutTextIsFatal()
{
    QFETCH(QByteArray, sizes);
    writeFile(sitePath(sizesName), document(sizes));
    const ChildResult result = runCopy(lookUpLogSize, app);
    QVERIFY2(result.failedAssertion(noLastCharacter), result.standardError.constData());
}

// ---- Sizes

void SettingsTest::size_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint32>("bytes");

    const auto row = [](const char *text, qint32 bytes, const char *why) {
        QTest::newRow(why) << QString::fromLatin1(text) << bytes;
    };
    row("512k", 524288, "kB");
    row("512K", 524288, "kB in upper case");
    row("2M", 2097152, "MB");
    row("2m", 2097152, "MB in lower case");
    row("1000", 100, "the last digit is dropped");
    row("100b", 100, "any other last character is dropped");
    row("5", 0, "one digit");
    row("k", 0, "a suffix alone");
    row("010k", 10240, "leading zeros are decimal");
    row("+1k", 1024, "a plus sign");
    row("-1k", -1024, "a minus sign");
    row(" 1 k", 1024, "blanks around the number do not matter");

    row("1k ", 0, "a suffix before a blank is part of no number");
    row("1kk", 0, "two suffixes");
    row("0x10k", 0, "hexadecimal");
    row("1.5M", 0, "a fraction");
    row("1,000k", 0, "grouped digits");
    row(" ", 0, "a blank");

    row("2047M", 2146435072, "largest without wrapping");
    row("2048M", -2147483647 - 1, "wraps to the smallest");
    row("4096M", 0, "wraps to 0");
    row("4097M", 1048576, "wraps round");
    row("2147483647k", -1024, "largest number");
    row("2147483649k", 0, "no 32-bit number");
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

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (lookUp(arguments.value(1), arguments.value(2)))
        return 0;
    SettingsTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_settings.moc"
