#include "backend/data/removal_lock.h"

#include "backend/base/outcome.h"
#include "backend/data/store.h"

#include <QFile>
#include <QRandomGenerator>

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Each content has a byte of the lock's file, which need not exist. Beyond them each keeper holds
// one of its own choice, so that keepers do not exclude each other, nor removers one another.
constexpr off_t keepersBegin = off_t(1) << 60;
constexpr off_t keepersCount = off_t(1) << 60;

off_t byteOf(const QByteArray& sha256)
{
    return sha256.left(14).toLongLong(nullptr, 16);
}

bool lockWithin(int handle, short type, off_t first, off_t count, std::chrono::milliseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = first;
    range.l_len = count;
    // Of the open file, not of the process: threads exclude each other too.
    while (::fcntl(handle, F_OFD_SETLK, &range) != 0) {
        if (errno != EAGAIN && errno != EACCES && errno != EINTR)
            throw Fault(u"cannot lock files of the store"_s);
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

} // namespace

RemovalLock::RemovalLock(const Store& store)
    : m_handle(::open(QFile::encodeName(store.removalLockPath()).constData(),
                      O_RDWR | O_CREAT | O_CLOEXEC, 0660))
{
    if (m_handle < 0)
        throw Fault(u"cannot open "_s + store.removalLockPath());
}

RemovalLock::~RemovalLock()
{
    ::close(m_handle);
}

RemovalLock::Held RemovalLock::toAdd(const Store& store, const QByteArray& sha256)
{
    const std::shared_ptr<RemovalLock> lock(new RemovalLock(store));
    if (!lockWithin(lock->m_handle, F_RDLCK, byteOf(sha256), 1, 5s))
        throw Busy(u"a file is being removed for too long"_s);
    return lock;
}

RemovalLock::Held RemovalLock::toKeepAll(const Store& store)
{
    const std::shared_ptr<RemovalLock> lock(new RemovalLock(store));
    const off_t mine = keepersBegin + off_t(QRandomGenerator::global()->generate64() >> 5);
    if (!lockWithin(lock->m_handle, F_WRLCK, mine, 1, 5s))
        throw Busy(u"files are being removed for too long"_s);
    return lock;
}

RemovalLock::Held RemovalLock::toRemove(const Store& store, const QByteArray& sha256)
{
    const std::shared_ptr<RemovalLock> lock(new RemovalLock(store));
    if (lockWithin(lock->m_handle, F_RDLCK, keepersBegin, keepersCount, 0s) &&
        lockWithin(lock->m_handle, F_WRLCK, byteOf(sha256), 1, 2s))
        return lock;
    return {};
}
