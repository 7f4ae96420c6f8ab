#include "backend/data/health.h"

#include "backend/base/log.h"
#include "backend/base/outcome.h"
#include "backend/data/database.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

Health::Health(Database& database) : m_database(database), m_thread([this] { work(); }) {}

Health::~Health()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

bool Health::isGood()
{
    std::unique_lock lock(m_mutex);
    if (!m_asking) {
        m_asking = true;
        m_asked = Clock::now();
        m_changed.notify_all();
    }
    // Counted from the question, so that many who ask do not wait one after the other.
    m_changed.wait_until(lock, m_asked + 40ms, [this] { return !m_asking; });
    return m_good && !(m_asking && Clock::now() > m_asked + 2s);
}

void Health::work()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_ending || m_asking; });
        if (m_ending)
            return;
        lock.unlock();
        bool good = false;
        try {
            m_database.value(u"SELECT revision FROM catalogue"_s);
            good = true;
        } catch (const std::exception& error) {
            logging::error(error);
        }
        lock.lock();
        m_good = good;
        m_asking = false;
        m_changed.notify_all();
    }
}
