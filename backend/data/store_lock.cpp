#include "backend/data/store_lock.h"

#include "backend/base/outcome.h"
#include "backend/data/store.h"

#include <QFile>

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// There is no flock with a time-out.
void lockWithin(int handle, int how, std::chrono::milliseconds patience)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (::flock(handle, how | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            throw Fault(u"cannot lock the store"_s);
        if (std::chrono::steady_clock::now() > end)
            throw Busy(u"the store is locked for too long"_s);
        std::this_thread::sleep_for(10ms);
    }
}

void lock(int handle, int how)
{
    while (::flock(handle, how) != 0) {
        if (errno != EINTR)
            throw Fault(u"cannot lock the store"_s);
    }
}

} // namespace

StoreLock::StoreLock(const Store& store, Mode mode, Patience patience)
    : m_handle(::open(QFile::encodeName(store.lockPath()).constData(), O_RDWR | O_CREAT | O_CLOEXEC,
                      0660))
{
    if (m_handle < 0)
        throw Fault(u"cannot open "_s + store.lockPath());
    const int how = mode == Mode::Shared ? LOCK_SH : LOCK_EX;
    try {
        if (patience == Patience::Client)
            lockWithin(m_handle, how, 5s);
        else
            lock(m_handle, how);
    } catch (const Fault&) {
        ::close(m_handle);
        throw;
    }
}

StoreLock::~StoreLock()
{
    ::close(m_handle);
}
