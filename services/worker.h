#pragma once

#include <QMetaObject>
#include <QObject>
#include <QThreadPool>

#include <memory>
#include <utility>

// Work that would hold the window, on a thread of its own: one piece after the other, in the order
// they were given. A member of the object that gives it work; used on that object's thread. Its
// end waits for the piece under way and drops the others and all results, so nothing of it ever
// meets an owner that is gone.
class Worker
{
public:
    Worker();
    ~Worker();
    Q_DISABLE_COPY_MOVE(Worker)

    // `work` runs on the worker's thread and may touch nothing but what it holds itself. `done`
    // gets its result on the owner's thread, from the event loop.
    template <typename Work, typename Done>
    void run(QObject* owner, Work work, Done done)
    {
        m_thread.start([owner, work = std::move(work), done = std::move(done)] {
            auto result = std::make_shared<decltype(work())>(work());
            QMetaObject::invokeMethod(
                owner, [done, result] { done(std::move(*result)); }, Qt::QueuedConnection);
        });
    }

private:
    QThreadPool m_thread;
};
