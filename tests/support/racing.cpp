// Does on purpose what no test may do: the worker and whoever gave it work write the same memory at
// the same time. ThreadSanitizer has to say so, whatever is suppressed.
#include "services/worker.h"

#include <QCoreApplication>

#include <chrono>
#include <memory>
#include <thread>

using namespace std::chrono_literals;

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    Worker worker;
    const auto shared = std::make_shared<int>(0);
    worker.run([shared](const std::stop_token&) { return ++*shared; },
               [](int) { QCoreApplication::quit(); });
    std::this_thread::sleep_for(50ms);
    ++*shared;
    return QCoreApplication::exec();
}
