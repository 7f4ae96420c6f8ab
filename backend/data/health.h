#pragma once

#include <QtGlobal>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

class Database;

// Whether the database answers, asked on a thread of its own: who wants to know is never kept
// waiting by a database that hangs. Thread-safe.
class Health
{
public:
    explicit Health(Database& database);
    ~Health();
    Q_DISABLE_COPY_MOVE(Health)

    // Asks anew and waits for a moment. When that is not enough, what was found last holds until
    // the question has been open for two seconds.
    bool isGood();

private:
    using Clock = std::chrono::steady_clock;

    void work();

    Database& m_database;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_asking = false;
    bool m_good = true;
    bool m_ending = false;
    Clock::time_point m_asked;
    std::thread m_thread;
};
