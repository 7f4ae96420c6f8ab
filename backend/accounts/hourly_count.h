#pragma once

#include <QHash>
#include <QMutex>
#include <QString>

#include <chrono>
#include <functional>

// How often something is done under a name within an hour from the first time. Thread-safe; lives
// in memory, so that a restart forgets, and remembers 50,000 names at most.
class HourlyCount
{
public:
    using Clock = std::chrono::steady_clock;

    // 0: as often as they like. `now` is for tests.
    explicit HourlyCount(int limit, std::function<Clock::time_point()> now = &Clock::now);

    // Counts one more and hands back 0, or counts nothing and hands back in how many seconds the
    // hour is over.
    int tryNow(const QString& name);
    // It came to nothing.
    void forgive(const QString& name);
    // How many names are remembered.
    qsizetype size();

private:
    struct Record
    {
        int count = 0;
        Clock::time_point end;
    };
    void dropOld(Clock::time_point now);

    const int m_limit;
    std::function<Clock::time_point()> m_now;
    QMutex m_mutex;
    QHash<QString, Record> m_records;
};
