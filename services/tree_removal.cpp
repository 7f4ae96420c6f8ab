#include "services/tree_removal.h"

#include <QByteArrayView>

#include <cerrno>
#include <cstdio>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// How many directories are open at a time. Those deeper than that first move to the top: to move
// one costs more than to enter it, but a tree may be deeper than a process may have open files.
constexpr int maxDepth = 64;

// Removes the content of one directory.
class Emptier
{
public:
    Emptier(int top, const std::function<bool()>& cancelled) : m_top(top), m_cancelled(cancelled) {}

    bool run() { return empty(m_top, 0); }

private:
    // Again and again: a directory that changes while it is listed may pass over an entry, and the
    // top gets what was moved there.
    bool empty(int directory, int depth)
    {
        int found = 0;
        do {
            found = removeListed(directory, depth);
        } while (found > 0);
        return found == 0;
    }

    // The number of entries; -1 when one cannot be removed.
    int removeListed(int directory, int depth)
    {
        const int copy = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        DIR* entries = copy < 0 ? nullptr : fdopendir(copy);
        if (!entries) {
            if (copy >= 0)
                close(copy);
            return -1;
        }
        int found = 0;
        for (const dirent* entry = readdir(entries); found >= 0 && entry;
             entry = readdir(entries)) {
            const QByteArrayView name(entry->d_name);
            if (name == "." || name == "..")
                continue;
            const bool cancelled = m_cancelled && m_cancelled();
            found = !cancelled && remove(directory, entry->d_name, depth) ? found + 1 : -1;
        }
        closedir(entries);
        return found;
    }

    bool remove(int directory, const char* name, int depth)
    {
        if (unlinkat(directory, name, 0) == 0 || errno == ENOENT)
            return true;
        const int inner = openOwned(directory, name);
        if (inner < 0)
            return false;
        const bool deeper = depth < maxDepth;
        const bool emptied = deeper && empty(inner, depth + 1);
        close(inner);
        if (!deeper)
            return moveToTop(directory, name);
        return emptied && unlinkat(directory, name, AT_REMOVEDIR) == 0;
    }

    bool moveToTop(int directory, const char* name)
    {
        char place[32] = {};
        do {
            std::snprintf(place, sizeof place, ".removed-%d", m_moved++);
        } while (faccessat(m_top, place, F_OK, AT_SYMLINK_NOFOLLOW) == 0);
        return renameat(directory, name, m_top, place) == 0;
    }

    // What its owner may not write to could not be emptied, and not be moved.
    static int openOwned(int directory, const char* name)
    {
        struct stat info = {};
        if (fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(info.st_mode))
            return -1;
        if ((info.st_mode & 0700) != 0700 && fchmodat(directory, name, 0700, 0) != 0)
            return -1;
        return openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }

    int m_top;
    const std::function<bool()>& m_cancelled;
    int m_moved = 0;
};

} // namespace

bool removeTree(const QByteArray& path, const std::function<bool()>& cancelled)
{
    struct stat info = {};
    if (lstat(path.constData(), &info) != 0)
        return errno == ENOENT;
    if (!S_ISDIR(info.st_mode))
        return unlink(path.constData()) == 0;
    if ((info.st_mode & 0700) != 0700)
        chmod(path.constData(), 0700);
    const int top = open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (top < 0)
        return false;
    const bool emptied = Emptier(top, cancelled).run();
    close(top);
    return emptied && rmdir(path.constData()) == 0;
}
