#include "services/worker.h"

#include <QCoreApplication>
#include <QEvent>

#include <atomic>

// Passes from the owner's thread to the worker's and back. Both crossings are orders that the
// thread pool and the event queue keep; the marks say so in the language's own terms, too.
struct Worker::Job
{
    enum class Where { Given, Begun, Finished };

    void run()
    {
        (void)where.load(std::memory_order_acquire);
        work(stop);
        work = {}; // to give back the memory of a large file takes long, too
        where.store(Where::Finished, std::memory_order_release);
        QCoreApplication::postEvent(owner, new QEvent(QEvent::User));
    }

    QObject* owner = nullptr;
    std::stop_token stop;
    std::function<void(const std::stop_token&)> work;
    std::function<void()> done;
    std::atomic<Where> where = Where::Given;
};

Worker::Worker()
{
    m_thread.setMaxThreadCount(1);
}

Worker::~Worker()
{
    m_stop.request_stop();
    m_thread.clear();
    m_thread.waitForDone();
    for (const auto& job : m_jobs)
        (void)job->where.load(std::memory_order_acquire);
}

void Worker::take(std::function<void(const std::stop_token&)> work, std::function<void()> done)
{
    auto job = std::make_unique<Job>();
    job->owner = this;
    job->stop = m_stop.get_token();
    job->work = std::move(work);
    job->done = std::move(done);
    m_jobs.push_back(std::move(job));
    if (!m_isHeld)
        begin(*m_jobs.back());
}

void Worker::begin(Job& job)
{
    job.where.store(Job::Where::Begun, std::memory_order_release);
    m_thread.start([job = &job] { job->run(); });
}

void Worker::hold()
{
    m_isHeld = true;
}

void Worker::release()
{
    m_isHeld = false;
    for (const auto& job : m_jobs) {
        if (job->where.load(std::memory_order_acquire) == Job::Where::Given)
            begin(*job);
    }
}

// One for each job, in their order.
void Worker::customEvent(QEvent* /*event*/)
{
    const std::unique_ptr<Job> job = std::move(m_jobs.front());
    m_jobs.pop_front();
    (void)job->where.load(std::memory_order_acquire);
    job->done();
}
