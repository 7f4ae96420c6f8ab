// Does on purpose what no test may do: the worker and whoever gave it work write the same memory at
// the same time. ThreadSanitizer has to say so, whatever is suppressed.
#include "services/worker.h"

#include <QCoreApplication>

#include <chrono>
#include <memory>
#include <thread>

using namespace std::chrono_literals;

namespace {

// More than once: what the threads happen to do between two writes may order those.
int countUp(int& number)
{
    for (int i = 0; i < 200; ++i) {
        ++number;
        std::this_thread::sleep_for(1ms);
    }
    return number;
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    Worker worker;
    const auto shared = std::make_shared<int>(0);
    worker.run([shared](const std::stop_token&) { return countUp(*shared); },
               [](int) { QCoreApplication::quit(); });
    countUp(*shared);
    return QCoreApplication::exec();
}
