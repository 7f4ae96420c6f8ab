#include "versions/file_digests.h"

#include "services/sha256.h"

#include <QFile>

#include <algorithm>
#include <chrono>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

using namespace std::chrono_literals;

// FAT tells times by two seconds, ext3 and small inodes by one; on top comes the tick by which a
// kernel's clock advances.
constexpr std::chrono::nanoseconds coarsestClock = 2s + 100ms;

qint64 toNs(const timespec& time)
{
    return qint64{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

} // namespace

bool FileDigests::read(int fileDescriptor, Stamp& stamp)
{
    struct stat info = {};
    if (fstat(fileDescriptor, &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    stamp = {info.st_size, toNs(info.st_mtim), toNs(info.st_ctim), info.st_ino, info.st_dev};
    return true;
}

// A change that lies ahead of the clock is not settled either: the clock was set back.
bool FileDigests::isSettled(const Stamp& stamp)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::chrono::nanoseconds last(std::max(stamp.modifiedNs, stamp.changedNs));
    return now - last > coarsestClock;
}

QString FileDigests::sha256(const QString& path)
{
    // Opening waits for nobody: a named pipe may stand there.
    const int descriptor =
        open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    QFile file;
    Stamp stamp;
    if (descriptor < 0 ||
        !file.open(descriptor, QIODevice::ReadOnly | QIODevice::Unbuffered,
                   QFile::AutoCloseHandle) ||
        !read(descriptor, stamp))
        return {};
    const auto known = m_known.constFind(path);
    if (known != m_known.cend() && known->stamp == stamp)
        return known->sha256;

    // Asked before the reading: what is read first could change until the end of it.
    const bool settled = isSettled(stamp);
    QString sha256 = Sha256::ofFile(descriptor);
    if (sha256.isEmpty())
        return {};
    Stamp after;
    if (settled && read(descriptor, after) && after == stamp)
        m_known.insert(path, {stamp, sha256});
    return sha256;
}
