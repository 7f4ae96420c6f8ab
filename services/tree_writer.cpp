#include "services/tree_writer.h"

#include <QFile>
#include <QList>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// To stand in it is enough: whoever may pass through a directory need not be able to list it.
constexpr int passFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
constexpr int ownerMay = 0700;

int openBelow(int directory, const QByteArray& name)
{
    return openat(directory, name.constData(), passFlags | O_NOFOLLOW);
}

} // namespace

TreeWriter::TreeWriter(const QString& destination)
    : m_root(open(QFile::encodeName(destination).constData(), passFlags))
{
}

TreeWriter::~TreeWriter()
{
    closeFile();
    if (m_directory >= 0)
        close(m_directory);
    if (m_root >= 0)
        close(m_root);
}

void TreeWriter::closeFile()
{
    if (m_file >= 0)
        close(m_file);
    m_file = -1;
}

// The directory that the last step stands in, made when it is missing. Archives come sorted: most
// entries stand beside the one before.
int TreeWriter::directoryOf(const QByteArrayList& steps)
{
    const QByteArrayList wanted = steps.first(steps.size() - 1);
    if (wanted.isEmpty())
        return m_root;
    if (m_directory >= 0 && wanted == m_directorySteps)
        return m_directory;
    int directory = m_root;
    for (const QByteArray& step : wanted) {
        int next = openBelow(directory, step);
        if (next < 0 && errno == ENOENT && mkdirat(directory, step.constData(), 0777) == 0)
            next = openBelow(directory, step);
        if (directory != m_root)
            close(directory);
        directory = next;
        if (directory < 0)
            return -1;
    }
    if (m_directory >= 0)
        close(m_directory);
    m_directory = directory;
    m_directorySteps = wanted;
    return directory;
}

bool TreeWriter::makeDirectory(const QByteArrayList& steps, int mode)
{
    const int directory = directoryOf(steps);
    const char* name = steps.last().constData();
    if (directory < 0 || (mkdirat(directory, name, ownerMay) != 0 && errno != EEXIST))
        return false;
    struct stat info = {};
    if (fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(info.st_mode))
        return false;
    if ((mode & ownerMay) == ownerMay)
        m_closedModes.remove(steps);
    else
        m_closedModes.insert(steps, mode);
    return fchmodat(directory, name, static_cast<mode_t>(mode | ownerMay), 0) == 0;
}

bool TreeWriter::remove(int directory, const QByteArray& name)
{
    return unlinkat(directory, name.constData(), 0) == 0 || errno == ENOENT;
}

bool TreeWriter::makeLink(const QByteArrayList& steps, const QByteArray& target)
{
    const int directory = directoryOf(steps);
    return directory >= 0 && remove(directory, steps.last()) &&
           symlinkat(target.constData(), directory, steps.last().constData()) == 0;
}

bool TreeWriter::beginFile(const QByteArrayList& steps, int mode)
{
    closeFile();
    const int directory = directoryOf(steps);
    if (directory < 0 || !remove(directory, steps.last()))
        return false;
    constexpr int flags = O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC;
    m_file = openat(directory, steps.last().constData(), flags, 0600);
    m_fileMode = mode;
    return m_file >= 0;
}

bool TreeWriter::write(QByteArrayView data)
{
    while (!data.isEmpty()) {
        const ssize_t written = ::write(m_file, data.data(), static_cast<size_t>(data.size()));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data = data.sliced(written);
    }
    return true;
}

bool TreeWriter::endFile(Sync sync)
{
    const bool whole = fchmod(m_file, static_cast<mode_t>(m_fileMode)) == 0 &&
                       (sync == Sync::No || fsync(m_file) == 0);
    // Some file systems report a failed write only now.
    return close(std::exchange(m_file, -1)) == 0 && whole;
}

bool TreeWriter::move(const QByteArrayList& from, const QByteArrayList& to)
{
    // Only one of the two directories is kept open.
    const int source = dup(directoryOf(from));
    const int target = directoryOf(to);
    const bool moved =
        source >= 0 && target >= 0 &&
        renameat(source, from.last().constData(), target, to.last().constData()) == 0;
    if (source >= 0)
        close(source);
    return moved;
}

// The deepest first: behind a closed directory nothing could be reached any more.
bool TreeWriter::closeDirectories(const std::function<bool()>& cancelled)
{
    QList<QByteArrayList> closed = m_closedModes.keys();
    std::ranges::sort(closed, std::ranges::greater(), &QByteArrayList::size);
    for (const QByteArrayList& steps : closed) {
        const int directory = directoryOf(steps);
        const auto mode = static_cast<mode_t>(m_closedModes.value(steps));
        if ((cancelled && cancelled()) || directory < 0 ||
            fchmodat(directory, steps.last().constData(), mode, 0) != 0)
            return false;
    }
    return true;
}
