#pragma once

#include <QtGlobal>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

// Does something when the server starts and every hour after that, on a thread of its own. What
// it throws is told to the log, and tried again an hour later. The destructor waits for what has
// begun.
class Janitor
{
public:
    explicit Janitor(std::function<void()> task, std::chrono::milliseconds pause = hour);
    ~Janitor();
    Q_DISABLE_COPY_MOVE(Janitor)

private:
    static constexpr std::chrono::hours hour{1};

    void work();

    const std::function<void()> m_task;
    const std::chrono::milliseconds m_pause;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ending = false;
    std::thread m_thread;
};
