#include "services/turn.h"

#include <QByteArray>
#include <QFile>

#include <cerrno>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A player who closes the window waits for one of these.
constexpr std::chrono::milliseconds betweenAttempts(20);

bool isStillNamed(int descriptor, const QByteArray& path)
{
    struct stat open = {};
    struct stat named = {};
    return fstat(descriptor, &open) == 0 && lstat(path.constData(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

} // namespace

Turn::~Turn()
{
    if (m_descriptor < 0)
        return;
    // Before the lock is given back: who gets it afterwards sees that its file has no name.
    unlink(QFile::encodeName(m_path).constData());
    close(m_descriptor);
}

bool Turn::wait(const std::function<bool()>& cancelled)
{
    while (!cancelled()) {
        const Attempt outcome = attempt();
        if (outcome != Attempt::Taken)
            return outcome == Attempt::Mine;
        std::this_thread::sleep_for(betweenAttempts);
    }
    return false;
}

Turn::Attempt Turn::attempt()
{
    const QByteArray path = QFile::encodeName(m_path);
    const int descriptor =
        open(path.constData(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0)
        return Attempt::Failed;
    const bool locked = flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    const bool taken = !locked && (errno == EWOULDBLOCK || errno == EINTR);
    if (taken || (locked && !isStillNamed(descriptor, path))) {
        close(descriptor);
        return Attempt::Taken;
    }
    m_descriptor = descriptor;
    return Attempt::Mine;
}
