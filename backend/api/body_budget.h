#pragma once

#include <QHash>
#include <QMutex>
#include <QString>

#include <memory>

// How many bytes of uploads may be in memory at a time, from the judgement of their heads until
// they are answered: for the whole process, and for one account. Thread-safe.
class BodyBudget
{
public:
    struct Limits
    {
        qint64 process = 32LL * 1024 * 1024;
        qint64 account = 4LL * 1024 * 1024;
    };
    explicit BodyBudget(Limits limits) : m_limits(limits) {}

    // Gives the bytes back when it goes. The budget must outlive it.
    using Share = std::shared_ptr<void>;
    // Nothing when there is no room. An empty account counts for the process alone.
    Share take(const QString& account, qint64 bytes);

private:
    void giveBack(const QString& account, qint64 bytes);

    const Limits m_limits;
    QMutex m_mutex;
    qint64 m_taken = 0;
    QHash<QString, qint64> m_takenBy;
};
