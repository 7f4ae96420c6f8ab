#pragma once

#include <QtGlobal>

#include <functional>
#include <thread>

// Turns SIGTERM and SIGINT into one call on a thread of its own, and sees to it that the program
// ends within ten seconds after it: then it exits with 0, whatever hangs. Make it before any other
// thread, so that none of them is interrupted by these signals.
class StopSignals
{
public:
    StopSignals();
    ~StopSignals();
    Q_DISABLE_COPY_MOVE(StopSignals)

    void onStop(std::function<void()> stop);

private:
    std::thread m_waiter;
};
