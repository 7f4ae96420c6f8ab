#include "backend/api/lane.h"

#include "backend/base/log.h"
#include "backend/base/outcome.h"

#include <new>

using namespace Qt::StringLiterals;

namespace {

int statusOf(const std::exception& error)
{
    const bool isMemory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    return isMemory || dynamic_cast<const Busy*>(&error) != nullptr ? 503 : 500;
}

void run(server::Answer& answer, const Lane::Work& work)
{
    try {
        work();
    } catch (const std::exception& error) {
        logging::error(error);
        answer.give(server::failure(statusOf(error)));
    }
}

} // namespace

Lane::Lane(int threads, size_t waitingAtMost) : m_waitingAtMost(waitingAtMost)
{
    for (int i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { serve(); });
}

Lane::~Lane()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads)
        thread.join();
}

void Lane::run(const server::AnswerPtr& answer, Work work)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_waiting.size() < m_waitingAtMost) {
            m_waiting.emplace_back(answer, std::move(work));
            m_changed.notify_one();
            return;
        }
    }
    answer->give(server::failure(503));
}

void Lane::serve()
{
    for (;;) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_ending || !m_waiting.empty(); });
        if (m_ending)
            return;
        const auto [answer, work] = std::move(m_waiting.front());
        m_waiting.pop_front();
        lock.unlock();
        try {
            if (!answer->abandoned)
                ::run(*answer, work);
        } catch (const std::exception& error) {
            // No memory even for that answer: the engine gives one when the time is over.
            logging::error(error);
        }
    }
}
