#include "services/runtime_archive.h"

#include "services/slices.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// What open() gives any new file; the user's mask takes from it.
constexpr mode_t newFileMode = 0666;
// How often another launcher may put its own there between two calls.
constexpr int maxAttempts = 100;

} // namespace

RuntimeArchive::RuntimeArchive(RuntimeArchive&& other) noexcept
    : m_path(std::move(other.m_path)), m_descriptor(std::exchange(other.m_descriptor, -1))
{
}

RuntimeArchive::~RuntimeArchive()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
}

bool RuntimeArchive::write(const QByteArray& body, const std::function<bool()>& cancelled)
{
    if (!create())
        return false;
    // Some file systems report a failed write only when a descriptor is closed.
    const int copy = dup(m_descriptor);
    const bool written = writeAll(body, cancelled) && copy >= 0;
    if (copy >= 0 && close(copy) == 0 && written)
        return true;
    remove();
    return false;
}

bool RuntimeArchive::create()
{
    const QByteArray path = QFile::encodeName(m_path);
    for (int attempt = 0; m_descriptor < 0 && attempt < maxAttempts; ++attempt) {
        if (unlink(path.constData()) != 0 && errno != ENOENT)
            return false;
        constexpr int flags = O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC;
        m_descriptor = open(path.constData(), flags, newFileMode);
        if (m_descriptor < 0 && errno != EEXIST)
            return false;
    }
    return m_descriptor >= 0;
}

bool RuntimeArchive::writeAll(QByteArrayView body, const std::function<bool()>& cancelled) const
{
    while (!body.isEmpty() && !cancelled()) {
        const auto size = static_cast<size_t>(std::min(sliceBytes, body.size()));
        const ssize_t written = ::write(m_descriptor, body.data(), size);
        if (written <= 0 && errno != EINTR)
            return false;
        body = body.sliced(std::max<ssize_t>(written, 0));
    }
    return body.isEmpty();
}

int RuntimeArchive::descriptor() const
{
    return fcntl(m_descriptor, F_DUPFD_CLOEXEC, 0);
}

void RuntimeArchive::remove() const
{
    const QByteArray path = QFile::encodeName(m_path);
    struct stat mine = {};
    struct stat named = {};
    if (fstat(m_descriptor, &mine) == 0 && lstat(path.constData(), &named) == 0 &&
        mine.st_dev == named.st_dev && mine.st_ino == named.st_ino)
        unlink(path.constData());
}
