// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "logging/logprocessor.h"
#include "testfiles.h"

#include <QMetaObject>
#include <QProcess>
#include <QStringList>

#include <cstdlib>

constexpr quint32 roomy = 1000000; // a limit that a test does not reach by accident
constexpr qint64 kiB = 1024;
constexpr int generousMs = 30000;

// A Thursday in June whose day has one digit.
constexpr qint64 june4Ms = 1780531200000;
inline const QByteArray june4Line = QByteArrayLiteral("-- Time: Thu Jun 4 00:00:00 2026 GMT\n");
inline const QByteArray oneSecondLaterLine =
    QByteArrayLiteral("-- Time: Thu Jun 4 00:00:01 2026 GMT\n");

// The names of days and months depend on the locale. It is set here, before main(), because Qt
// reads it from the environment only once.
inline const bool languageIsPlain = ::setenv("LC_ALL", "C", 1) == 0;

/**
 * An application that has ended and whose output was not yet read. Without behaviours it is an
 * application that was never started, whose output is empty.
 */
class SilentApplication : public QProcess
{
public:
    explicit SilentApplication(const QStringList &behaviours)
    {
        setOpenMode(QIODevice::ReadOnly);
        if (behaviours.isEmpty())
            return;
        start(QStringLiteral(SAMPLE_APPLICATION), behaviours);
        if (!waitForFinished(generousMs))
            qFatal("the application did not end");
    }
};

/** A log processor with its application and a clock that the test sets. */
struct Log
{
    /** @p printed has the behaviours of the sample application that have printed the output. */
    explicit Log(const QString &name, quint32 maxSize = roomy, bool logTime = false,
                 const QStringList &printed = QStringList())
        : fileName(name), application(printed),
          processor(&application, name, maxSize, logTime, [this] {
              const qint64 now = nowMs;
              nowMs += stepMs;
              return now;
          })
    { }

    void write(const QByteArray &chunk) { processor.write(chunk); }

    /** The content of the file after a flush, as if the flush timer had run out. */
    QByteArray text()
    {
        QMetaObject::invokeMethod(&processor, "on_flushTimer_timeout");
        return readFile(fileName);
    }

    QString fileName;
    SilentApplication application;
    qint64 nowMs = june4Ms;
    qint64 stepMs = 0; ///< added to the clock after each reading
    LogProcessor processor;
};

/** A log processor whose file is open. */
struct OpenLog : Log
{
    template <typename... Arguments>
    explicit OpenLog(const Arguments &...arguments) : Log(arguments...)
    {
        if (!processor.open())
            qFatal("cannot open the log");
    }
};
