#pragma once

#include <QtGlobal>

#include <condition_variable>
#include <mutex>
#include <thread>

class Database;
class Store;

// Sweeps when the server starts and every hour after that, on a thread of its own.
class Janitor
{
public:
    Janitor(Database& database, const Store& store);
    ~Janitor();
    Q_DISABLE_COPY_MOVE(Janitor)

private:
    void work();

    Database& m_database;
    const Store& m_store;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ending = false;
    std::thread m_thread;
};
