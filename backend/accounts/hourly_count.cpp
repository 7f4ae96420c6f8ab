#include "backend/accounts/hourly_count.h"

#include <QMutexLocker>

using namespace std::chrono_literals;

namespace {

constexpr qsizetype recordsBeforeDropping = 50'000;

} // namespace

HourlyCount::HourlyCount(int limit, std::function<Clock::time_point()> now)
    : m_limit(limit), m_now(std::move(now))
{
}

int HourlyCount::tryNow(const QString& name)
{
    if (m_limit == 0)
        return 0;
    const QMutexLocker lock(&m_mutex);
    const auto now = m_now();
    dropOld(now);
    Record& record = m_records[name];
    if (record.count == 0 || record.end <= now)
        record = {0, now + 1h};
    if (record.count >= m_limit)
        return static_cast<int>(std::chrono::ceil<std::chrono::seconds>(record.end - now).count());
    ++record.count;
    return 0;
}

void HourlyCount::forgive(const QString& name)
{
    const QMutexLocker lock(&m_mutex);
    const auto found = m_records.find(name);
    if (found != m_records.end() && --found->count <= 0)
        m_records.remove(name);
}

qsizetype HourlyCount::size()
{
    const QMutexLocker lock(&m_mutex);
    return m_records.size();
}

void HourlyCount::dropOld(Clock::time_point now)
{
    if (m_records.size() < recordsBeforeDropping)
        return;
    m_records.removeIf([now](const auto& entry) { return entry.value().end <= now; });
    // At least half goes, so that a full memory is not searched every time: first who has room.
    const int limit = m_limit;
    if (m_records.size() > recordsBeforeDropping / 2)
        m_records.removeIf([limit](const auto& entry) { return entry.value().count < limit; });
    if (m_records.size() > recordsBeforeDropping / 2)
        m_records.clear();
}
