#pragma once

#include "backend/database.h"
#include "backend/store.h"

#include <QString>

// A data directory and, when it is not the SQLite file in there, the address of its database.
struct SiteLocation
{
    QString directory;
    QString database;
};

// An opened data directory: what every command works on. Opening creates what is missing and
// brings the database up to date; several processes may have the same directory open. Throws Fault
// when root opens the directory of another user.
class Site
{
public:
    explicit Site(const SiteLocation& location);

    static QString databaseFile(const QString& directory);

    Database& database() { return m_database; }
    const Store& store() const { return m_store; }

private:
    Store m_store;
    Database m_database;
};
