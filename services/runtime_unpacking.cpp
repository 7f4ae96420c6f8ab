#include "services/runtime_unpacking.h"

#include "services/runtime_archive.h"
#include "services/tree_removal.h"
#include "services/turn.h"
#include "services/zip.h"

#include <QDir>
#include <QFile>
#include <QStringList>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

using Cancelled = std::function<bool()>;

constexpr QByteArrayView installedName = "jre-11";
// The runtime before, whole, where two names cannot be exchanged in one go.
constexpr QByteArrayView oldName = "jre-11.old";
// And while it is removed.
constexpr QByteArrayView removedName = "jre-11.removed";
constexpr QByteArrayView turnName = "jre-install.lock";
// An archive with one of these would unpack into what its neighbours rely on.
constexpr std::array<QByteArrayView, 5> takenNames = {installedName, oldName, removedName, turnName,
                                                      "jre-download.zip"};

class Place
{
public:
    explicit Place(const QString& base) : m_base(QFile::encodeName(base)) {}

    QByteArray path(QByteArrayView name) const { return m_base + '/' + name.toByteArray(); }

    // One that was killed may have left the runtime before beside the new one, or instead of it.
    void clearLeftovers(const Cancelled& cancelled) const
    {
        removeTree(path(removedName), cancelled);
        if (rename(oldName, exists(installedName) ? removedName : installedName))
            removeTree(path(removedName), cancelled);
    }

    // Whoever looks finds the runtime before or the new one, never something between. What cannot
    // be removed of the one before waits for the next unpacking.
    bool replaceBy(const QByteArray& unpacked, const Cancelled& cancelled) const
    {
        struct stat info = {};
        if (lstat(path(installedName).constData(), &info) != 0)
            return errno == ENOENT && rename(unpacked, installedName);
        // A link goes alone: what it leads to is somebody else's.
        if (!S_ISDIR(info.st_mode) && !S_ISLNK(info.st_mode))
            return false;
        if (exchange(unpacked, installedName)) {
            rename(unpacked, removedName);
        } else {
            if (!rename(installedName, oldName))
                return false;
            if (!rename(unpacked, installedName)) {
                rename(oldName, installedName);
                return false;
            }
            rename(oldName, removedName);
        }
        removeTree(path(removedName), cancelled);
        return true;
    }

private:
    bool exists(QByteArrayView name) const
    {
        struct stat info = {};
        return lstat(path(name).constData(), &info) == 0;
    }

    bool rename(QByteArrayView from, QByteArrayView to) const
    {
        return std::rename(path(from).constData(), path(to).constData()) == 0;
    }

    // Not every file system can.
    bool exchange(QByteArrayView one, QByteArrayView other) const
    {
        return renameat2(AT_FDCWD, path(one).constData(), AT_FDCWD, path(other).constData(),
                         RENAME_EXCHANGE) == 0;
    }

    QByteArray m_base;
};

// The unpacked directory that becomes the runtime. Only what this archive brought counts: a
// directory that an interrupted unpacking left behind is not a whole runtime.
QString unpackedJdk(const QDir& base, const QStringList& topLevel)
{
    const QStringList found = base.entryList(
        {u"jdk*"_s}, QDir::Dirs | QDir::NoSymLinks | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QString& name : found) {
        if (topLevel.contains(name))
            return name;
    }
    return {};
}

} // namespace

QString unpackRuntime(const RuntimeArchive& archive, const QString& base,
                      const Cancelled& cancelled)
{
    const Place place(base);
    Turn turn(QFile::decodeName(place.path(turnName)));
    std::optional<QStringList> topLevel;
    if (turn.wait(cancelled)) {
        place.clearLeftovers(cancelled);
        ArchiveLimits limits = archive_limits::runtime;
        limits.takenNames = takenNames;
        topLevel =
            zip::extract(ArchiveSource::descriptor(archive.descriptor()), base, cancelled, limits);
    }
    archive.remove();
    if (!topLevel)
        return u"Could not extract Java runtime"_s;

    const QString jdk = unpackedJdk(QDir(base), *topLevel);
    if (jdk.isEmpty())
        return u"Runtime archive had unexpected layout"_s;
    if (!place.replaceBy(QFile::encodeName(jdk), cancelled) ||
        !QFile::exists(QFile::decodeName(place.path(installedName)) + u"/bin/java"))
        return u"Could not finalize runtime install"_s;
    return {};
}
