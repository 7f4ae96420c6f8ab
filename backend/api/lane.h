#pragma once

#include "backend/http/engine.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// A few threads for one kind of work, with a queue of its own, so that kinds do not wait for each
// other. What the work throws becomes 503 or 500, told to the log and not to the client. The
// destructor drops what has not begun. Thread-safe.
class Lane
{
public:
    // Gives the answer by itself.
    using Work = std::function<void()>;

    Lane(int threads, size_t waitingAtMost);
    ~Lane();
    Q_DISABLE_COPY_MOVE(Lane)

    // Answers 503 at once when too many are waiting.
    void run(const server::AnswerPtr& answer, Work work);

private:
    void serve();

    const size_t m_waitingAtMost;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::pair<server::AnswerPtr, Work>> m_waiting;
    bool m_ending = false;
    std::vector<std::thread> m_threads;
};
