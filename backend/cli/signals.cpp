#include "backend/cli/signals.h"

#include "backend/base/log.h"

#include <cerrno>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

sigset_t awaited()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    // Wakes the waiter when nobody asked to stop.
    sigaddset(&set, SIGUSR1);
    return set;
}

} // namespace

Signals::Signals()
{
    const sigset_t set = awaited();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // A client that hangs up is an error of one write, not the end of the program.
    signal(SIGPIPE, SIG_IGN);
    // So is a file that has become too large for a limit of the system.
    signal(SIGXFSZ, SIG_IGN);
}

Signals::~Signals()
{
    if (!m_waiter.joinable())
        return;
    pthread_kill(m_waiter.native_handle(), SIGUSR1);
    m_waiter.join();
}

void Signals::listen(std::function<void()> stop, std::function<void()> reload)
{
    m_waiter = std::thread([stop = std::move(stop), reload = std::move(reload)] {
        const sigset_t set = awaited();
        int received = 0;
        while (sigwait(&set, &received) == 0 && received == SIGHUP)
            reload();
        if (received == SIGUSR1)
            return;
        stop();
        // Until the destructor wakes us. Threads that hang cannot be ended one by one; what they
        // did not commit, the database undoes.
        sigset_t over;
        sigemptyset(&over);
        sigaddset(&over, SIGUSR1);
        const timespec patience{9, 0};
        while (sigtimedwait(&over, nullptr, &patience) < 0) {
            if (errno == EINTR)
                continue;
            logging::error(u"stopped without waiting for what hangs"_s);
            _exit(0);
        }
    });
}
