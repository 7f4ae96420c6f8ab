#include "services/slices.h"

#include <QTimer>

void runInSlices(QObject* owner, std::function<bool()> step)
{
    // A timer, not a queued call: queued calls are handled in one go with those they queue.
    auto* timer = new QTimer(owner);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, step = std::move(step)] {
        if (step())
            return;
        timer->stop();
        timer->deleteLater();
    });
    timer->start(0);
}
