#pragma once

#include <QtGlobal>

#include <atomic>
#include <thread>
#include <vector>

// Stands between the server and its database on the loopback interface and can stop passing on what
// either says, without closing anything, as a machine does that hangs. Has a thread of its own.
class FreezingProxy
{
public:
    // `target` is a port of 127.0.0.1.
    explicit FreezingProxy(quint16 target);
    ~FreezingProxy();
    Q_DISABLE_COPY_MOVE(FreezingProxy)

    quint16 port() const { return m_port; }

    // Gone: every connection is closed, and each new one at once.
    enum class Frozen { Nothing, ConnectionsOfNow, Everything, Gone };
    // Connections that were frozen once are closed when nothing is frozen any more.
    void freeze(Frozen what);

private:
    struct Pair
    {
        int client;
        int target;
        bool isFrozen = false;
    };
    void work();
    void accept();
    bool pass(int from, int to) const;

    const quint16 m_target;
    quint16 m_port = 0;
    int m_listener;
    std::atomic<Frozen> m_frozen = Frozen::Nothing;
    std::atomic<bool> m_ending = false;
    std::atomic<int> m_rounds = 0;
    std::vector<Pair> m_pairs;
    std::thread m_thread;
};
