#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <memory>

class Store;

// What StoreLock is for all files at once, for a single one, so that a replaced file can go while
// others are being added: who adds a file holds its lock from before the file lies there until the
// database refers to it; who removes it holds it alone, from before it asks whether something
// refers to it until the file is gone. Who must find every file of the database in its place keeps
// all of them meanwhile. Taken before a transaction begins, never within one. Works between
// processes; ends with its process, whatever ended that. May be let go by any thread.
// Throws Fault when the lock's file cannot be opened.
class RemovalLock
{
public:
    using Held = std::shared_ptr<const RemovalLock>;

    // Waits for a removal of that very content; after five seconds throws Busy.
    static Held toAdd(const Store& store, const QByteArray& sha256);
    // Waits for removals under way; after five seconds throws Busy.
    static Held toKeepAll(const Store& store);
    // Nothing when somebody keeps all files, or adds that one for longer than two seconds.
    static Held toRemove(const Store& store, const QByteArray& sha256);

    ~RemovalLock();
    Q_DISABLE_COPY_MOVE(RemovalLock)

private:
    explicit RemovalLock(const Store& store);

    int m_handle;
};
