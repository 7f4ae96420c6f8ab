#pragma once

#include "backend/data/store.h"

#include <QStringList>

class Database;

// Looks whether everything that was ever answered is still true: the database is sound, and every
// file is there, whole, under its own digest.
class Checker
{
public:
    Checker(Database& database, const Store& store) : m_database(database), m_store(store) {}

    struct Report
    {
        int files = 0;
        int unused = 0;     // lie there without a reference; the next sweep removes them
        QStringList damage; // in words, one text for each thing that is not as it was stored
    };
    Report run(const Store::Progress& progress = {});

private:
    void checkDatabase(Report& report);
    QString damageOf(const StoredFile& file) const;

    Database& m_database;
    const Store& m_store;
};
