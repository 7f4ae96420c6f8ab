#include "versions/file_stamp.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include <sys/stat.h>

#include <ctime>

namespace {

using namespace std::chrono_literals;

// FAT tells times by two seconds, ext3 and small inodes by one; on top comes the tick by which a
// kernel's clock advances.
constexpr std::chrono::nanoseconds coarsestClock = 2s + 100ms;
// Several ticks of the slowest kernel.
constexpr auto patience = 50ms;
constexpr qint64 secondNs = 1'000'000'000;

qint64 toNs(const timespec& time)
{
    return qint64{time.tv_sec} * secondNs + time.tv_nsec;
}

// The clock that the kernel takes the times of files from.
qint64 tickNs()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return toNs(now);
}

} // namespace

std::optional<FileStamp> FileStamp::of(int descriptor)
{
    struct stat info = {};
    if (fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode))
        return {};
    return FileStamp{info.st_size, toNs(info.st_mtim), toNs(info.st_ctim), info.st_ino,
                     info.st_dev};
}

// A change that lies ahead of the clock is not settled either: the clock was set back.
bool FileStamp::isSettled() const
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::chrono::nanoseconds last(std::max(modifiedNs, changedNs));
    return now - last > coarsestClock;
}

bool FileStamp::settle() const
{
    // A file system that tells times by whole seconds hides more than a tick.
    if (changedNs % secondNs == 0)
        return false;
    const auto end = std::chrono::steady_clock::now() + patience;
    while (tickNs() <= changedNs && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(1ms);
    return tickNs() > changedNs;
}
