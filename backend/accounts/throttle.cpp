#include "backend/accounts/throttle.h"

#include <QMutexLocker>

#include <algorithm>

using namespace std::chrono_literals;

namespace {

constexpr auto memory = 1h;
// Names that an attacker makes up must not fill the memory.
constexpr qsizetype recordsBeforeDropping = 50'000;

} // namespace

Throttle::Throttle(Policy policy, std::function<Clock::time_point()> now)
    : m_policy(policy), m_now(std::move(now))
{
}

int Throttle::tryNow(const QString& name)
{
    const QMutexLocker lock(&m_mutex);
    const auto now = m_now();
    dropOld(now);
    Record& record = m_records[name];
    if (record.failures > 0 && now - record.last > memory)
        record = {};
    if (now < record.next) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(record.next - now);
        return static_cast<int>(left.count());
    }
    ++record.failures;
    record.last = now;
    const int beyond = record.failures - m_policy.freeFailures;
    if (beyond >= 0) {
        const std::chrono::seconds delay(1LL << std::min(beyond, 20));
        record.next = now + std::min(delay, m_policy.longestDelay);
    }
    return 0;
}

void Throttle::forgive(const QString& name)
{
    const QMutexLocker lock(&m_mutex);
    const auto found = m_records.find(name);
    if (found == m_records.end())
        return;
    found->next = {};
    if (--found->failures <= 0)
        m_records.remove(name);
}

void Throttle::forget(const QString& name)
{
    const QMutexLocker lock(&m_mutex);
    m_records.remove(name);
}

qsizetype Throttle::size()
{
    const QMutexLocker lock(&m_mutex);
    return m_records.size();
}

void Throttle::dropOld(Clock::time_point now)
{
    if (m_records.size() < recordsBeforeDropping)
        return;
    m_records.removeIf([now](const auto& entry) { return now - entry.value().last > memory; });
    // At least half goes, so that a full memory is not searched at every try.
    if (m_records.size() > recordsBeforeDropping / 2)
        m_records.removeIf([now](const auto& entry) { return entry.value().next <= now; });
    if (m_records.size() > recordsBeforeDropping / 2)
        m_records.clear();
}
