// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "health/hwwatchdog.h"

#include <QFile>
#include <QTemporaryFile>
#include <QVector>
#include <QtTest>

#include <cstdarg>

#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int noAnswer = -1;

// An ioctl() of the watchdog's group of requests.
struct Request
{
    unsigned long number;
    bool hasArgument;
    int value; // the value that the argument points to

    bool operator==(const Request &other) const
    {
        return number == other.number && hasArgument == other.hasArgument && value == other.value;
    }
};

// The driver that the ioctl() below simulates.
struct Driver
{
    int answer = noAnswer; // the value that it stores through the argument
    bool refuses = false;
    QVector<Request> requests;
};

Driver &driver()
{
    static Driver the;
    return the;
}

using Operation = void (*)(HwWatchdog &);

} // namespace

Q_DECLARE_METATYPE(Operation)

// Replaces the C library's function in this process, because a file stands for the device and files
// know none of these requests.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    int *const value = va_arg(arguments, int *);
    va_end(arguments);
    if (_IOC_TYPE(request) != WATCHDOG_IOCTL_BASE)
        return static_cast<int>(::syscall(SYS_ioctl, fd, request, value));

    driver().requests.append({request, value != nullptr, value != nullptr ? *value : 0});
    if (driver().refuses)
        return -1;
    if (value != nullptr && driver().answer != noAnswer)
        *value = driver().answer;
    return 0;
}

// tests/system tests which device the supervisor opens and that it writes nothing to it.
class HwWatchdogTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void operation_data();
    void operation();
    void timeoutWrittenBackIsDiscarded();
    void timeoutIsReadBack_data();
    void timeoutIsReadBack();
    void missingDeviceIsToldOnceAndGetsNoRequest();
    void descriptorsFromOneUpwardAreUsed_data();
    void descriptorsFromOneUpwardAreUsed();
    void refusedRequestsAreSilent();
    void destructionLeavesTheDeviceOpenForWriting();

private:
    static void performAll(HwWatchdog &watchdog);

    QTemporaryFile m_file;
    QByteArray m_device;
};

void HwWatchdogTest::initTestCase()
{
    QVERIFY(m_file.open());
    m_device = QFile::encodeName(m_file.fileName());
}

void HwWatchdogTest::init()
{
    driver() = Driver();
}

void HwWatchdogTest::performAll(HwWatchdog &watchdog)
{
    watchdog.setTimeout(30);
    watchdog.keepAlive();
    watchdog.getTimeout();
    watchdog.disable();
    watchdog.enable();
}

void HwWatchdogTest::operation_data()
{
    QTest::addColumn<Operation>("perform");
    QTest::addColumn<uint>("number");
    QTest::addColumn<bool>("hasArgument");
    QTest::addColumn<int>("value");

    QTest::newRow("keepAlive") << Operation([](HwWatchdog &w) { w.keepAlive(); }) << 0x80045705U
                               << false << 0;
    QTest::newRow("setTimeout") << Operation([](HwWatchdog &w) { w.setTimeout(30); }) << 0xC0045706U
                                << true << 30;
    QTest::newRow("getTimeout asks with a 0")
        << Operation([](HwWatchdog &w) { w.getTimeout(); }) << 0x80045707U << true << 0;
    QTest::newRow("disable") << Operation([](HwWatchdog &w) { w.disable(); }) << 0x80045704U << true
                             << 1;
    QTest::newRow("enable") << Operation([](HwWatchdog &w) { w.enable(); }) << 0x80045704U << true
                            << 2;
}

void HwWatchdogTest::operation()
{
    QFETCH(Operation, perform);
    QFETCH(uint, number);
    QFETCH(bool, hasArgument);
    QFETCH(int, value);
    HwWatchdog watchdog(nullptr, m_device);
    QVERIFY(driver().requests.isEmpty());
    perform(watchdog);
    QCOMPARE(driver().requests, QVector<Request>({{number, hasArgument, value}}));
}

// A driver whose longest time-out is 16 s uses 16 s. The next call still asks for 30 s.
void HwWatchdogTest::timeoutWrittenBackIsDiscarded()
{
    HwWatchdog watchdog(nullptr, m_device);
    driver().answer = 16;
    watchdog.setTimeout(30);
    watchdog.setTimeout(30);
    QCOMPARE(driver().requests,
             QVector<Request>({{WDIOC_SETTIMEOUT, true, 30}, {WDIOC_SETTIMEOUT, true, 30}}));
}

void HwWatchdogTest::timeoutIsReadBack_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("refuses");
    QTest::addColumn<int>("timeout");

    QTest::newRow("the driver's own") << 16 << false << 16;
    QTest::newRow("the driver writes nothing") << noAnswer << false << 0;
    QTest::newRow("the driver refuses") << 16 << true << 0;
}

void HwWatchdogTest::timeoutIsReadBack()
{
    QFETCH(int, answer);
    QFETCH(bool, refuses);
    QFETCH(int, timeout);
    driver().answer = answer;
    driver().refuses = refuses;
    QCOMPARE(HwWatchdog(nullptr, m_device).getTimeout(), timeout);
}

void HwWatchdogTest::missingDeviceIsToldOnceAndGetsNoRequest()
{
    const ChildResult child = runInChild([] {
        HwWatchdog watchdog(nullptr, "/nowhere/watchdog");
        driver().answer = 16;
        performAll(watchdog);
        ::_exit(driver().requests.size() + watchdog.getTimeout());
    });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardError, QByteArray("Watchdog device doesn't exist!!!\n"));
    QCOMPARE(child.standardOutput, QByteArray());
}

void HwWatchdogTest::descriptorsFromOneUpwardAreUsed_data()
{
    QTest::addColumn<int>("descriptor");
    QTest::addColumn<int>("requests");

    // The supervisor was started with its standard input closed.
    QTest::newRow("0 counts as missing, but silently") << 0 << 0;
    QTest::newRow("1") << 1 << 5;
}

void HwWatchdogTest::descriptorsFromOneUpwardAreUsed()
{
    QFETCH(int, descriptor);
    const ChildResult child = runInChild([this, descriptor] {
        ::close(descriptor); // the next open() returns it
        HwWatchdog watchdog(nullptr, m_device);
        performAll(watchdog);
        ::_exit(driver().requests.size());
    });
    QTEST(child.exitCode, "requests");
    QCOMPARE(child.standardError, QByteArray());
}

void HwWatchdogTest::refusedRequestsAreSilent()
{
    const ChildResult child = runInChild([this] {
        driver().refuses = true;
        HwWatchdog watchdog(nullptr, m_device);
        performAll(watchdog);
        ::_exit(driver().requests.size());
    });
    QCOMPARE(child.exitCode, 5); // calls go on after a refusal
    QCOMPARE(child.standardError, QByteArray());
    QCOMPARE(child.standardOutput, QByteArray());
}

// The board is reset after the supervisor's end, because the device is neither disabled nor closed.
void HwWatchdogTest::destructionLeavesTheDeviceOpenForWriting()
{
    const int device = ::dup(m_file.handle());
    QVERIFY(device != -1);
    ::close(device); // the next open() returns it
    {
        HwWatchdog watchdog(nullptr, m_device);
        watchdog.keepAlive();
    }
    QCOMPARE(driver().requests.size(), 1);
    QCOMPARE(::fcntl(device, F_GETFL) & O_ACCMODE, O_WRONLY);
    QCOMPARE(m_file.size(), 0);
    ::close(device);
}

QTEST_GUILESS_MAIN(HwWatchdogTest)
#include "tst_hwwatchdog.moc"
