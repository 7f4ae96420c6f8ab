#include "backend/upkeep/janitor.h"

#include "backend/base/log.h"
#include "backend/base/outcome.h"
#include "backend/upkeep/sweep.h"

using namespace std::chrono_literals;

Janitor::Janitor(Database& database, const Store& store)
    : m_database(database), m_store(store), m_thread([this] { work(); })
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
            sweep::run(m_database, m_store);
        } catch (const Fault& fault) {
            logging::error(fault.text());
        }
        lock.lock();
        m_changed.wait_for(lock, 1h, [this] { return m_ending; });
    }
}
