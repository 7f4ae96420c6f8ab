#include "backend/data/watchdog.h"

#include <sys/socket.h>

using namespace std::chrono_literals;

Watchdog::~Watchdog()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

Watchdog::Watch::Watch(Watchdog& watchdog, int socket) : m_watchdog(watchdog), m_socket(socket)
{
    const std::lock_guard lock(m_watchdog.m_mutex);
    if (!m_watchdog.m_thread.joinable())
        m_watchdog.m_thread = std::thread([&watchdog] { watchdog.work(); });
    m_watchdog.m_deadlines.insert(socket, Clock::now() + m_watchdog.m_patience);
}

Watchdog::Watch::~Watch()
{
    const std::lock_guard lock(m_watchdog.m_mutex);
    m_watchdog.m_deadlines.remove(m_socket);
}

void Watchdog::work()
{
    std::unique_lock lock(m_mutex);
    // Looking now and then costs less than being woken at every statement.
    while (!m_changed.wait_for(lock, 250ms, [this] { return m_ending; })) {
        const auto now = Clock::now();
        for (auto [socket, deadline] : m_deadlines.asKeyValueRange()) {
            if (deadline < now)
                ::shutdown(socket, SHUT_RDWR);
        }
    }
}
