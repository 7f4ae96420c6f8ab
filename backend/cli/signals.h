#pragma once

#include <QtGlobal>

#include <functional>
#include <thread>

// Turns signals into calls, one at a time, on a thread of its own. Make it before any other thread,
// so that none of them is interrupted by these signals.
class Signals
{
public:
    Signals();
    ~Signals();
    Q_DISABLE_COPY_MOVE(Signals)

    // What SIGTERM and SIGINT do, once: the program ends within ten seconds after it, with 0,
    // whatever hangs. And what each SIGHUP does. They must not throw.
    void listen(std::function<void()> stop, std::function<void()> reload);

private:
    std::thread m_waiter;
};
