#pragma once

#include "backend/data/database.h"
#include "backend/data/store.h"

#include <QString>

// A data directory and, when it is not the SQLite file in there, the address of its database.
struct DataLocation
{
    QString directory;
    QString database;
};

// An opened data directory: what every command works on. Opening creates what is missing and
// brings the database up to date; several processes may have the same directory open. Throws Fault
// when root opens the directory of another user.
class DataDirectory
{
public:
    explicit DataDirectory(const DataLocation& location);

    static QString databaseFile(const QString& directory);

    Database& database() { return m_database; }
    const Store& store() const { return m_store; }

private:
    Store m_store;
    Database m_database;
};
