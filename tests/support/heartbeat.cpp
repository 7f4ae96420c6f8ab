#include "tests/support/heartbeat.h"

#include <ctime>

namespace {

qint64 processorMs()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return qint64{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

} // namespace

Heartbeat::Heartbeat(int periodMs)
{
    restart();
    m_timer.callOnTimeout(this, &Heartbeat::beat);
    m_timer.start(periodMs);
}

qint64 Heartbeat::longestMs() const
{
    return qMax(m_longestMs, m_sinceBeat.elapsed());
}

qint64 Heartbeat::longestProcessorMs() const
{
    return qMax(m_longestProcessorMs, processorMs() - m_processorAtBeat);
}

void Heartbeat::restart()
{
    m_sinceBeat.start();
    m_longestMs = 0;
    m_processorAtBeat = processorMs();
    m_longestProcessorMs = 0;
}

void Heartbeat::beat()
{
    m_longestMs = longestMs();
    m_longestProcessorMs = longestProcessorMs();
    m_sinceBeat.start();
    m_processorAtBeat = processorMs();
}
