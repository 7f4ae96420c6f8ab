#include "backend/store_lock.h"

#include "backend/outcome.h"
#include "backend/store.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

StoreLock::StoreLock(const Store& store, Mode mode)
    : m_handle(::open(QFile::encodeName(store.lockPath()).constData(), O_RDWR | O_CREAT | O_CLOEXEC,
                      0660))
{
    if (m_handle < 0)
        throw Fault(u"cannot open "_s + store.lockPath());
    while (::flock(m_handle, mode == Mode::Shared ? LOCK_SH : LOCK_EX) != 0) {
        if (errno == EINTR)
            continue;
        ::close(m_handle);
        throw Fault(u"cannot lock "_s + store.lockPath());
    }
}

StoreLock::~StoreLock()
{
    ::close(m_handle);
}
