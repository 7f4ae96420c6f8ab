#include "backend/api/lane.h"

#include "backend/base/log.h"
#include "backend/base/outcome.h"

#include <new>

using namespace Qt::StringLiterals;

namespace {

void run(http::Answer& answer, const Lane::Work& work)
{
    try {
        work();
    } catch (const std::bad_alloc&) {
        logging::error(u"out of memory while answering a request"_s);
        answer.give(http::failure(503));
    } catch (const Busy& fault) {
        logging::error(fault.text());
        answer.give(http::failure(503));
    } catch (const std::exception& error) {
        logging::error(QString::fromUtf8(error.what()));
        answer.give(http::failure(500));
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

void Lane::run(const http::AnswerPtr& answer, Work work)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_waiting.size() < m_waitingAtMost) {
            m_waiting.emplace_back(answer, std::move(work));
            m_changed.notify_one();
            return;
        }
    }
    answer->give(http::failure(503));
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
        if (!answer->abandoned)
            ::run(*answer, work);
    }
}
