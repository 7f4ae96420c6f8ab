// Does on purpose what no test may do: the worker and whoever gave it work write the same memory at
// the same time. ThreadSanitizer has to say so, whatever is suppressed.
#include "services/worker.h"

#include <QCoreApplication>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

using namespace std::chrono_literals;

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    Worker worker;
    const auto shared = std::make_shared<int>(0);
    // Orders nothing, unlike whatever else could tell that the worker has begun.
    std::atomic<bool> begun = false;
    worker.run(
        [shared, &begun](const std::stop_token&) {
            const int number = ++*shared;
            begun.store(true, std::memory_order_relaxed);
            return number;
        },
        [](int) { QCoreApplication::quit(); });
    while (!begun.load(std::memory_order_relaxed))
        std::this_thread::sleep_for(1ms);
    ++*shared;
    return QCoreApplication::exec();
}
