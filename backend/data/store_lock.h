#pragma once

#include "backend/data/patience.h"

#include <QtGlobal>

class Store;

// Keeps the sweep of unused files away from files that are being published, also between
// processes: who adds a file holds it Shared from before the file is written until the database
// refers to it; the sweep holds it Alone. What goes without waiting for the sweep is RemovalLock's.
// Belongs to the thread that made it. Throws Fault when the lock's file cannot be opened.
class StoreLock
{
public:
    enum class Mode { Shared, Alone };

    // Waits until it can be had; with a client's patience five seconds, then throws Busy.
    explicit StoreLock(const Store& store, Mode mode, Patience patience = Patience::Endless);
    ~StoreLock();
    Q_DISABLE_COPY_MOVE(StoreLock)

private:
    int m_handle;
};
