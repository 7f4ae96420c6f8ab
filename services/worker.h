#pragma once

#include <QObject>
#include <QThreadPool>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>

// Work that would hold the window, on a thread of its own: one piece after the other, in the order
// they were given. A member of the object that gives it work; used on that object's thread. Its end
// asks the piece under way to stop and waits for it, and drops the others and all results, so
// nothing of it ever meets an owner that is gone. Pieces that take long look at their stop token.
class Worker : public QObject
{
public:
    Worker();
    ~Worker() override;

    // `work` runs on the worker's thread with a stop token and may touch nothing but what it holds
    // itself, which it gives up there. `done` gets its result on the owner's thread, from the event
    // loop.
    template <typename Work, typename Done>
    void run(Work work, Done done)
    {
        using Result = std::invoke_result_t<Work&, const std::stop_token&>;
        const auto result = std::make_shared<std::optional<Result>>();
        take([work = std::move(work),
              result](const std::stop_token& stop) mutable { result->emplace(work(stop)); },
             [done = std::move(done), result] { done(std::move(**result)); });
    }

    // Until release() nothing that is given is begun. What is under way goes on.
    void hold();
    void release();

protected:
    void customEvent(QEvent* event) override;

private:
    struct Job;

    void take(std::function<void(const std::stop_token&)> work, std::function<void()> done);
    void begin(Job& job);

    std::stop_source m_stop;
    std::deque<std::unique_ptr<Job>> m_jobs; // those without a delivered result
    bool m_isHeld = false;
    QThreadPool m_thread;
};
