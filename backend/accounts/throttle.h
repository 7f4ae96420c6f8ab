#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QString>

#include <chrono>
#include <functional>

// Slows down who guesses: failures are counted under a name, and each one beyond a few free ones
// doubles the time until the next try is looked at. Forgotten an hour after the last failure.
// Thread-safe; lives in memory, so that a restart forgets.
class Throttle
{
public:
    using Clock = std::chrono::steady_clock;

    struct Policy
    {
        int freeFailures;
        std::chrono::seconds longestDelay;
    };
    // `now` is for tests.
    explicit Throttle(Policy policy, std::function<Clock::time_point()> now = &Clock::now);

    // Counts a try as failed and hands back 0, or leaves it uncounted and hands back how many
    // seconds are left until one may be made. Counting first keeps parallel guesses from slipping
    // through together.
    int tryNow(const QString& name);
    // The try was none that needs slowing down.
    void forgive(const QString& name);
    void forget(const QString& name);
    // How many names are remembered.
    qsizetype size();

private:
    struct Record
    {
        int failures = 0;
        Clock::time_point next;
        Clock::time_point last;
    };
    void dropOld(Clock::time_point now);

    Policy m_policy;
    std::function<Clock::time_point()> m_now;
    QMutex m_mutex;
    QHash<QString, Record> m_records;
};
