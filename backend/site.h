#pragma once

#include "backend/database.h"
#include "backend/store.h"

#include <QString>

// An opened data directory: what every command works on. Opening creates what is missing and
// brings the database up to date; several processes may have the same directory open.
class Site
{
public:
    // The database is an SQLite file in the directory, unless another is named.
    explicit Site(const QString& directory, const QString& databaseUrl = {});

    Database& database() { return m_database; }
    const Store& store() const { return m_store; }

private:
    Store m_store;
    Database m_database;
};
