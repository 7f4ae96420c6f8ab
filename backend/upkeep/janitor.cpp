#include "backend/upkeep/janitor.h"

#include "backend/base/log.h"

Janitor::Janitor(std::function<void()> task, std::chrono::milliseconds pause)
    : m_task(std::move(task)), m_pause(pause), m_thread([this] { work(); })
{
}

Janitor::~Janitor()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void Janitor::work()
{
    std::unique_lock lock(m_mutex);
    while (!m_ending) {
        lock.unlock();
        try {
            m_task();
        } catch (const std::exception& error) {
            logging::error(error);
        }
        lock.lock();
        m_changed.wait_for(lock, m_pause, [this] { return m_ending; });
    }
}
