#include "tests/support/spin.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

namespace {

constexpr int limitMs = 120'000;

} // namespace

bool spinUntil(const std::function<bool()>& over)
{
    QEventLoop loop;
    QTimer poll;
    QElapsedTimer since;
    since.start();
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (over() || since.hasExpired(limitMs))
            loop.quit();
    });
    poll.start(1);
    loop.exec();
    return over();
}
