#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>

class Database;
class QIODevice;
class RemovalLock;

struct StoredFile
{
    QByteArray sha256;
    qint64 size = 0;
    // Of a file that was just added: nobody removes it while this lives.
    std::shared_ptr<const RemovalLock> lock = {};
};

// The files of the data directory, each under its own SHA-256: files/ab/ab12... A file is written
// under a temporary name, synced and renamed, so that a name that exists always holds the whole
// content, whatever stopped the program. Thread-safe, and safe between processes: it keeps no
// state. Throws Fault when the disk refuses.
class Store
{
public:
    using Progress = std::function<void(qint64 done, qint64 total)>;

    // Creates what is missing below `directory`.
    explicit Store(const QString& directory);
    // Whether a store was created there already.
    static bool isAt(const QString& directory);

    // The caller holds StoreLock Shared from before, and what comes back until the database refers
    // to it.
    StoredFile add(QIODevice& source, const Progress& progress = {}) const;
    StoredFile add(const QByteArray& content) const;

    // Enters a stored file in the database, so that other rows may refer to it.
    static void note(Database& database, const StoredFile& file);

    QString pathOf(const QByteArray& sha256) const;
    // The part of a public address that leads to a file: "/files/ab/ab12...".
    static QString addressOf(const QByteArray& sha256);
    // The digests of all files that lie there.
    QList<QByteArray> list() const;
    // What StoreLock locks, and what RemovalLock does.
    QString lockPath() const { return m_directory + QStringLiteral("/store.lock"); }
    QString removalLockPath() const { return m_directory + QStringLiteral("/removal.lock"); }
    // Removes scratch files that a crash left; only while nobody else writes.
    void clearTemporary() const;
    // A name for a scratch file on the store's own disk.
    QString temporaryPath() const;

private:
    void publish(const QString& temporary, const QByteArray& sha256) const;

    QString m_directory;
};
