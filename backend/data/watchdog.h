#pragma once

#include <QHash>
#include <QtGlobal>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

// Ends waiting for a peer that stopped answering without closing the connection, which the library
// that waits would do for ever: the socket is shut down, and whoever waits is told that the
// connection is lost. Has a thread of its own. Thread-safe.
class Watchdog
{
public:
    explicit Watchdog(std::chrono::milliseconds patience) : m_patience(patience) {}
    ~Watchdog();
    Q_DISABLE_COPY_MOVE(Watchdog)

    // One wait. Ends before the socket is closed.
    class Watch
    {
    public:
        Watch(Watchdog& watchdog, int socket);
        ~Watch();
        Q_DISABLE_COPY_MOVE(Watch)

    private:
        Watchdog& m_watchdog;
        int m_socket;
    };

private:
    using Clock = std::chrono::steady_clock;

    void work();

    const std::chrono::milliseconds m_patience;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    QHash<int, Clock::time_point> m_deadlines; // by socket
    bool m_ending = false;
    std::thread m_thread; // begins with the first wait
};
