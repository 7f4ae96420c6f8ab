#pragma once

#include <QtGlobal>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// A fixed number of threads that take jobs in order. The destructor lets the last jobs finish.
class WorkerPool
{
public:
    explicit WorkerPool(int threads);
    ~WorkerPool();
    Q_DISABLE_COPY_MOVE(WorkerPool)

    void enqueue(std::function<void()> job);

private:
    void work();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_jobs;
    bool m_ending = false;
    std::vector<std::thread> m_threads;
};
