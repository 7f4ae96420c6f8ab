#include "services/staged_file.h"

#include <QFileInfo>
#include <QThreadPool>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// What open() gives any new file; the user's mask takes from it.
constexpr mode_t newFileMode = 0666;

bool removeOld(const QByteArray& path)
{
    return unlink(path.constData()) == 0 || errno == ENOENT;
}

} // namespace

StagedFile::StagedFile(const QString& path) : m_path(path) {}

StagedFile::~StagedFile()
{
    discard();
}

bool StagedFile::create()
{
    const QByteArray path = QFile::encodeName(m_path);
    const QByteArray directory = QFile::encodeName(QFileInfo(m_path).absolutePath());
    int descriptor = open(directory.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, newFileMode);
    if (descriptor < 0 && removeOld(path)) {
        constexpr int flags = O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC;
        descriptor = open(path.constData(), flags, newFileMode);
        m_named = descriptor >= 0;
    }
    return descriptor >= 0 && m_file.open(descriptor, QIODevice::WriteOnly | QIODevice::Unbuffered,
                                          QFile::AutoCloseHandle);
}

bool StagedFile::write(QByteArrayView bytes)
{
    return m_file.write(bytes.data(), bytes.size()) == bytes.size() &&
           fdatasync(m_file.handle()) == 0;
}

bool StagedFile::name()
{
    const QByteArray path = QFile::encodeName(m_path);
    const QByteArray unnamed = "/proc/self/fd/" + QByteArray::number(m_file.handle());
    m_named = removeOld(path) && linkat(AT_FDCWD, unnamed.constData(), AT_FDCWD, path.constData(),
                                        AT_SYMLINK_FOLLOW) == 0;
    return m_named;
}

// Another launcher may have put its own there meanwhile, and be at work on it.
bool StagedFile::isStillNamed() const
{
    struct stat mine = {};
    struct stat named = {};
    return fstat(m_file.handle(), &mine) == 0 &&
           lstat(QFile::encodeName(m_path).constData(), &named) == 0 &&
           mine.st_dev == named.st_dev && mine.st_ino == named.st_ino;
}

bool StagedFile::keep()
{
    bool kept = fsync(m_file.handle()) == 0 && (m_named ? isStillNamed() : name());
    if (!kept)
        discard();
    m_file.close();
    // Some file systems report a failed write only now.
    kept = kept && m_file.error() == QFile::NoError && syncDirectory();
    if (kept)
        m_named = false;
    else
        discard();
    return kept;
}

// Without it the disk may know the file but not its name.
bool StagedFile::syncDirectory() const
{
    const QByteArray directory = QFile::encodeName(QFileInfo(m_path).absolutePath());
    const int descriptor = open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    // Some file systems cannot be asked.
    const bool synced = fsync(descriptor) == 0 || errno == EINVAL;
    close(descriptor);
    return synced;
}

void StagedFile::discard()
{
    const bool isNamed = m_named && (!m_file.isOpen() || isStillNamed());
    // Who closes it last waits until the disk has taken all its room back.
    const int last = m_file.isOpen() ? fcntl(m_file.handle(), F_DUPFD_CLOEXEC, 0) : -1;
    m_file.close();
    if (isNamed)
        unlink(QFile::encodeName(m_path).constData());
    m_named = false;
    if (last >= 0)
        QThreadPool::globalInstance()->start([last] { close(last); });
}
