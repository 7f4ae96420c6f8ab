#pragma once

#include "backend/data/store.h"
#include "backend/looks/look.h"

#include <optional>

class Database;

// What a player's character looks like: one file of the store for each kind of look. Thread-safe.
// Throws Fault when disk or database refuse, Busy when they are held for too long.
class Appearance
{
public:
    Appearance(Database& database, const Store& store) : m_database(database), m_store(store) {}

    // `content` as the look accepted it.
    void set(const Look& look, const QString& account, const QByteArray& content);
    // The digest of an account's file, or nothing: no such account, or none uploaded.
    std::optional<QByteArray> find(const Look& look, const QString& account);

private:
    Database& m_database;
    const Store& m_store;
};
