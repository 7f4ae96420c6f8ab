#include "app/private_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr mode_t ownerOnly = 0600;
constexpr mode_t anyOther = 077;

// Each with the mode from the start; those that are there keep theirs.
void makeDirectories(const QString& path)
{
    if (QFileInfo::exists(path))
        return;
    const QString parent = QFileInfo(path).absolutePath();
    if (parent != path)
        makeDirectories(parent);
    QDir().mkdir(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// Somebody else's file cannot be closed, but a copy can take its place.
void replaceByCopy(QFile& file, const QString& path)
{
    const QString target = QFileInfo(path).canonicalFilePath();
    QTemporaryFile copy(target + u".XXXXXX"); // makes it for the owner alone
    const QByteArray content = file.readAll();
    if (!copy.open() || copy.write(content) != content.size() || !copy.flush())
        return;
    const bool placed = std::rename(QFile::encodeName(copy.fileName()).constData(),
                                    QFile::encodeName(target).constData()) == 0;
    copy.setAutoRemove(!placed);
}

// Opening waits for nobody: a named pipe has no writer perhaps.
void closeToOthers(const QString& path, int flags)
{
    const int descriptor = open(QFile::encodeName(path).constData(),
                                O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags, ownerOnly);
    QFile file;
    if (descriptor < 0 || !file.open(descriptor, QIODevice::ReadOnly, QFile::AutoCloseHandle))
        return;
    struct stat info = {};
    if (fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode) || (info.st_mode & anyOther) == 0)
        return;
    if (fchmod(descriptor, info.st_mode & ownerOnly) != 0)
        replaceByCopy(file, path);
}

} // namespace

void private_file::make(const QString& path)
{
    makeDirectories(QFileInfo(path).absolutePath());
    closeToOthers(path, O_CREAT);
}

void private_file::repair(const QString& path)
{
    closeToOthers(path, 0);
    const QFileInfo info(path);
    const QDir directory = info.absoluteDir();
    for (const QString& name :
         directory.entryList({QString(info.fileName() + u".*")}, QDir::Files | QDir::NoSymLinks))
        closeToOthers(directory.filePath(name), O_NOFOLLOW);
}
