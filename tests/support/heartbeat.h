#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

// Measures how long the event loop of its thread was not turning: what a player sees as a window
// that does not react. On the clock, where a busy machine has its part in it; and in the thread's
// own processor time, which tells work from bad luck but does not see a wait.
class Heartbeat : public QObject
{
    Q_OBJECT

public:
    // ThreadSanitizer makes the test's own server, on the same thread, several times as slow.
#ifdef __SANITIZE_THREAD__
    static constexpr qint64 slowness = 4;
#else
    static constexpr qint64 slowness = 1;
#endif

    explicit Heartbeat(int periodMs = 10);

    // The longest gap so far, including the one that has not ended yet.
    qint64 longestMs() const;
    qint64 longestProcessorMs() const;
    // Forgets the gaps so far.
    void restart();

private:
    void beat();

    QTimer m_timer;
    QElapsedTimer m_sinceBeat;
    qint64 m_longestMs = 0;
    qint64 m_processorAtBeat = 0;
    qint64 m_longestProcessorMs = 0;
};
