#include "tests/support/costs.h"

#include <sys/resource.h>

#include <ctime>

namespace costs {

double cpuSeconds()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

qint64 peakBytes()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<qint64>(usage.ru_maxrss) * 1024;
}

} // namespace costs
