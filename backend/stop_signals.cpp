#include "backend/stop_signals.h"

#include <pthread.h>
#include <signal.h>

namespace {

sigset_t stopSet()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    // Wakes the waiter when nobody asked to stop.
    sigaddset(&set, SIGUSR1);
    return set;
}

} // namespace

StopSignals::StopSignals()
{
    const sigset_t set = stopSet();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // A client that hangs up is an error of one write, not the end of the program.
    signal(SIGPIPE, SIG_IGN);
}

StopSignals::~StopSignals()
{
    if (!m_waiter.joinable())
        return;
    pthread_kill(m_waiter.native_handle(), SIGUSR1);
    m_waiter.join();
}

void StopSignals::onStop(std::function<void()> stop)
{
    m_waiter = std::thread([stop = std::move(stop)] {
        const sigset_t set = stopSet();
        int received = 0;
        sigwait(&set, &received);
        stop();
    });
}
