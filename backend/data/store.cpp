#include "backend/data/store.h"

#include "backend/base/digest.h"
#include "backend/base/outcome.h"
#include "backend/data/database.h"
#include "backend/data/removal_lock.h"

#include <QBuffer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 blockBytes = 1024 * 1024;

Fault diskFault(const QString& path)
{
    return Fault(u"cannot write %1: %2"_s.arg(path, QString::fromLocal8Bit(strerror(errno))));
}

// A rename is durable only when its directory is.
void syncDirectory(const QString& path)
{
    const int handle = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY);
    const bool synced = handle >= 0 && ::fsync(handle) == 0;
    if (handle >= 0)
        ::close(handle);
    if (!synced)
        throw diskFault(path);
}

// Removes a scratch file that was not renamed away.
struct Scratch
{
    explicit Scratch(const QString& path) : file(path) {}
    ~Scratch() { file.remove(); }
    Q_DISABLE_COPY_MOVE(Scratch)
    QFile file;
};

} // namespace

Store::Store(const QString& directory) : m_directory(directory)
{
    for (const QString& name : {u"/files"_s, u"/tmp"_s}) {
        if (!QDir().mkpath(m_directory + name))
            throw diskFault(QString(m_directory + name));
    }
}

bool Store::isAt(const QString& directory)
{
    return QDir(directory + "/files"_L1).exists();
}

StoredFile Store::add(QIODevice& source, const Progress& progress) const
{
    Scratch scratch(temporaryPath());
    if (!scratch.file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
        throw diskFault(scratch.file.fileName());
    Digest digest;
    StoredFile stored;
    QByteArray block(blockBytes, Qt::Uninitialized);
    for (;;) {
        const qint64 got = source.read(block.data(), block.size());
        if (got < 0)
            throw Fault(u"cannot read: "_s + source.errorString());
        if (got == 0)
            break;
        if (scratch.file.write(block.constData(), got) != got)
            throw diskFault(scratch.file.fileName());
        digest.add(block.constData(), got);
        stored.size += got;
        if (progress)
            progress(stored.size, source.size());
    }
    if (::fsync(scratch.file.handle()) != 0)
        throw diskFault(scratch.file.fileName());
    scratch.file.close();
    stored.sha256 = digest.hex();
    // Before it lies there: an equal file may be about to go.
    stored.lock = RemovalLock::toAdd(*this, stored.sha256);
    publish(scratch.file.fileName(), stored.sha256);
    return stored;
}

StoredFile Store::add(const QByteArray& content) const
{
    QBuffer buffer;
    buffer.setData(content);
    buffer.open(QIODevice::ReadOnly);
    return add(buffer);
}

void Store::publish(const QString& temporary, const QByteArray& sha256) const
{
    const QString path = pathOf(sha256);
    const QString directory = path.section(u'/', 0, -2);
    if (!QDir(directory).exists()) {
        if (!QDir().mkpath(directory))
            throw diskFault(directory);
        syncDirectory(QString(m_directory + "/files"_L1));
    }
    // Replaces an equal file too, and with it one that the disk has damaged.
    if (::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(path).constData()) !=
        0)
        throw diskFault(path);
    syncDirectory(directory);
}

void Store::note(Database& database, const StoredFile& file)
{
    database.run(u"INSERT INTO files (sha256, size) VALUES (?, ?)"
                 " ON CONFLICT (sha256) DO NOTHING"_s,
                 {QString::fromLatin1(file.sha256), file.size});
}

QString Store::pathOf(const QByteArray& sha256) const
{
    return m_directory + addressOf(sha256);
}

QString Store::addressOf(const QByteArray& sha256)
{
    Q_ASSERT(Digest::isDigest(sha256));
    const QString name = QString::fromLatin1(sha256);
    return u"/files/"_s + name.left(2) + u'/' + name;
}

QList<QByteArray> Store::list() const
{
    QList<QByteArray> found;
    QDirIterator files(m_directory + "/files"_L1, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        files.next();
        const QByteArray name = files.fileName().toLatin1();
        if (Digest::isDigest(name))
            found.append(name);
    }
    return found;
}

void Store::clearTemporary() const
{
    QDir directory(m_directory + "/tmp"_L1);
    const QStringList names = directory.entryList(QDir::Files | QDir::Hidden);
    for (const QString& name : names)
        directory.remove(name);
}

QString Store::temporaryPath() const
{
    return m_directory + "/tmp/"_L1 + QUuid::createUuid().toString(QUuid::WithoutBraces);
}
