#include "backend/worker_pool.h"

WorkerPool::WorkerPool(int threads)
{
    for (int i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { work(); });
}

WorkerPool::~WorkerPool()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads)
        thread.join();
}

void WorkerPool::enqueue(std::function<void()> job)
{
    {
        const std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    m_changed.notify_one();
}

void WorkerPool::work()
{
    for (;;) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_ending || !m_jobs.empty(); });
        if (m_jobs.empty())
            return;
        const std::function<void()> job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        job();
    }
}
