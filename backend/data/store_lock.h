#pragma once

#include <QtGlobal>

class Store;

// Keeps the sweep of unused files away from files that are being published, also between
// processes: who adds a file holds it Shared from before the file is written until the database
// refers to it; the sweep holds it Alone.
class StoreLock
{
public:
    enum class Mode { Shared, Alone };

    // Client: throws Busy when it takes longer than a client can wait.
    enum class Patience { Endless, Client };

    // Waits until it can be had.
    explicit StoreLock(const Store& store, Mode mode, Patience patience = Patience::Endless);
    ~StoreLock();
    Q_DISABLE_COPY_MOVE(StoreLock)

private:
    int m_handle;
};
