#include "backend/api/body_budget.h"

#include <QMutexLocker>

BodyBudget::Share BodyBudget::take(const QString& account, qint64 bytes)
{
    {
        const QMutexLocker lock(&m_mutex);
        const qint64 taken = account.isEmpty() ? 0 : m_takenBy.value(account);
        if (m_taken + bytes > m_limits.process || taken + bytes > m_limits.account)
            return {};
        if (!account.isEmpty())
            m_takenBy[account] = taken + bytes;
        m_taken += bytes;
    }
    // Should this run out of memory, it gives back by itself.
    return {this, [account, bytes](BodyBudget* budget) { budget->giveBack(account, bytes); }};
}

void BodyBudget::giveBack(const QString& account, qint64 bytes)
{
    const QMutexLocker lock(&m_mutex);
    m_taken -= bytes;
    if (account.isEmpty())
        return;
    const qint64 left = m_takenBy.take(account) - bytes;
    if (left > 0)
        m_takenBy.insert(account, left);
}
