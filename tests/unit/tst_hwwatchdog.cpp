// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "health/hwwatchdog.h"

#include <QTemporaryFile>
#include <QVector>
#include <QtTest>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int noAnswer = -1;

// One ioctl() of the watchdog's family.
struct Request
{
    int descriptor;
    unsigned long number;
    bool hasArgument;
    int value; // what the argument points to

    bool operator==(const Request &other) const
    {
        return descriptor == other.descriptor && number == other.number
            && hasArgument == other.hasArgument && value == other.value;
    }
};

// The device as the open() and ioctl() below play it; the board's own is never reached.
struct Device
{
    int descriptor = -1;   // what open() gives
    int answer = noAnswer; // what ioctl() stores through its argument
    bool refuses = false;  // ioctl() fails
    QVector<QByteArray> openedPaths;
    QVector<int> openFlags;
    QVector<Request> requests;
};

Device &device()
{
    static Device the;
    return the;
}

using Operation = void (*)(HwWatchdog &);

} // namespace

Q_DECLARE_METATYPE(Operation)

// The C library's functions, for every caller in this process.
extern "C" {

int open(const char *file, int oflag, ...)
{
    if (std::strncmp(file, "/dev/watchdog", std::strlen("/dev/watchdog")) == 0) {
        device().openedPaths.append(file);
        device().openFlags.append(oflag);
        if (device().descriptor == -1)
            errno = ENOENT;
        return device().descriptor;
    }
    mode_t mode = 0;
    if ((oflag & (O_CREAT | O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, oflag);
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it is, one line above
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, file, oflag, mode));
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    int *const value = va_arg(arguments, int *);
    va_end(arguments);
    if (_IOC_TYPE(request) != WATCHDOG_IOCTL_BASE)
        return static_cast<int>(::syscall(SYS_ioctl, fd, request, value));

    device().requests.append({fd, request, value != nullptr, value != nullptr ? *value : 0});
    if (device().refuses) {
        errno = EINVAL;
        return -1;
    }
    if (value != nullptr && device().answer != noAnswer)
        *value = device().answer;
    return 0;
}
}

class HwWatchdogTest : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void isPlainObject();
    void opensTheDeviceOnceForWriting();
    void opensTheDeviceNamed();
    void operation_data();
    void operation();
    void operationsReachTheDeviceInOrder();
    void timeoutWrittenBackIsDiscarded();
    void timeoutIsReadBack_data();
    void timeoutIsReadBack();
    void missingDeviceIsReportedOnce();
    void missingDeviceGetsNoRequest();
    void descriptorZeroCountsAsMissingButSilently();
    void refusedRequestsAreSilent();
    void destructionLeavesTheDeviceAlone();

private:
    static void performAll(HwWatchdog &watchdog);
};

void HwWatchdogTest::init()
{
    device() = Device();
    device().descriptor = 1000;
}

void HwWatchdogTest::performAll(HwWatchdog &watchdog)
{
    watchdog.setTimeout(30);
    watchdog.keepAlive();
    watchdog.getTimeout();
    watchdog.disable();
    watchdog.enable();
}

void HwWatchdogTest::isPlainObject()
{
    QObject owner;
    auto *watchdog = new HwWatchdog(&owner);
    const QMetaObject *meta = watchdog->metaObject();
    QCOMPARE(meta->className(), "HwWatchdog");
    QCOMPARE(meta->methodCount(), meta->methodOffset());
    QCOMPARE(meta->propertyCount(), meta->propertyOffset());
    QCOMPARE(watchdog->parent(), &owner);
    QCOMPARE(HwWatchdog().parent(), nullptr);
}

void HwWatchdogTest::opensTheDeviceOnceForWriting()
{
    HwWatchdog watchdog;
    performAll(watchdog);
    QCOMPARE(device().openedPaths, QVector<QByteArray>({"/dev/watchdog"}));
    QCOMPARE(device().openFlags, QVector<int>({O_WRONLY}));
}

void HwWatchdogTest::opensTheDeviceNamed()
{
    HwWatchdog watchdog(nullptr, "/dev/watchdog1");
    QCOMPARE(device().openedPaths, QVector<QByteArray>({"/dev/watchdog1"}));
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

    // 1 is the lowest descriptor that counts as a device.
    for (const int descriptor : {1, 1000}) {
        device().descriptor = descriptor;
        device().requests.clear();
        HwWatchdog watchdog;
        QVERIFY(device().requests.isEmpty());
        perform(watchdog);
        QCOMPARE(device().requests, QVector<Request>({{descriptor, number, hasArgument, value}}));
    }
}

void HwWatchdogTest::operationsReachTheDeviceInOrder()
{
    HwWatchdog watchdog;
    performAll(watchdog);
    watchdog.keepAlive();

    QVector<unsigned long> numbers;
    for (const Request &request : qAsConst(device().requests))
        numbers.append(request.number);
    QCOMPARE(numbers,
             QVector<unsigned long>({WDIOC_SETTIMEOUT, WDIOC_KEEPALIVE, WDIOC_GETTIMEOUT,
                                     WDIOC_SETOPTIONS, WDIOC_SETOPTIONS, WDIOC_KEEPALIVE}));
}

// A driver whose longest time-out is 16 s takes that instead; the next call still asks for 30 s.
void HwWatchdogTest::timeoutWrittenBackIsDiscarded()
{
    HwWatchdog watchdog;
    device().answer = 16;
    watchdog.setTimeout(30);
    watchdog.setTimeout(30);
    QCOMPARE(
        device().requests,
        QVector<Request>({{1000, WDIOC_SETTIMEOUT, true, 30}, {1000, WDIOC_SETTIMEOUT, true, 30}}));
    device().answer = noAnswer;
    QCOMPARE(watchdog.getTimeout(), 0);
}

void HwWatchdogTest::timeoutIsReadBack_data()
{
    QTest::addColumn<int>("descriptor");
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("refuses");
    QTest::addColumn<int>("timeout");

    QTest::newRow("the driver's own") << 1000 << 16 << false << 16;
    QTest::newRow("the driver writes nothing") << 1000 << noAnswer << false << 0;
    QTest::newRow("the driver refuses") << 1000 << 16 << true << 0;
    QTest::newRow("lowest descriptor") << 1 << 16 << false << 16;
    QTest::newRow("descriptor 0") << 0 << 16 << false << 0;
    QTest::newRow("no device") << -1 << 16 << false << 0;
}

void HwWatchdogTest::timeoutIsReadBack()
{
    QFETCH(int, descriptor);
    QFETCH(int, answer);
    QFETCH(bool, refuses);
    QFETCH(int, timeout);
    device().descriptor = descriptor;
    device().answer = answer;
    device().refuses = refuses;
    QCOMPARE(HwWatchdog().getTimeout(), timeout);
}

void HwWatchdogTest::missingDeviceIsReportedOnce()
{
    device().descriptor = -1;
    const ChildResult child = runInChild([] {
        HwWatchdog watchdog;
        performAll(watchdog);
        performAll(watchdog);
    });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardError, QByteArray("Watchdog device doesn't exist!!!\n"));
    QCOMPARE(child.standardError.size(), 33);
    QCOMPARE(child.standardOutput, QByteArray());
}

void HwWatchdogTest::missingDeviceGetsNoRequest()
{
    device().descriptor = -1;
    HwWatchdog watchdog;
    performAll(watchdog);
    QVERIFY(device().requests.isEmpty());
    QCOMPARE(device().openedPaths.size(), 1); // no second try either
}

// The supervisor was started with its standard input closed.
void HwWatchdogTest::descriptorZeroCountsAsMissingButSilently()
{
    device().descriptor = 0;
    const ChildResult child = runInChild([] {
        HwWatchdog watchdog;
        performAll(watchdog);
    });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardError, QByteArray());

    HwWatchdog watchdog;
    performAll(watchdog);
    QVERIFY(device().requests.isEmpty());
}

void HwWatchdogTest::refusedRequestsAreSilent()
{
    device().refuses = true;
    const ChildResult child = runInChild([] {
        HwWatchdog watchdog;
        performAll(watchdog);
    });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardError, QByteArray());
    QCOMPARE(child.standardOutput, QByteArray());

    HwWatchdog watchdog;
    performAll(watchdog);
    QCOMPARE(device().requests.size(), 5); // a refusal does not end the attempts
}

// A supervisor that ends must be followed by a reset: no disabling, no magic close, no close.
void HwWatchdogTest::destructionLeavesTheDeviceAlone()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    device().descriptor = file.handle();
    {
        HwWatchdog watchdog;
        watchdog.keepAlive();
    }
    QCOMPARE(device().requests.size(), 1);
    QVERIFY(::fcntl(device().descriptor, F_GETFD) != -1);
    QCOMPARE(file.size(), 0);
}

QTEST_GUILESS_MAIN(HwWatchdogTest)
#include "tst_hwwatchdog.moc"
