#pragma once

#include "backend/accounts.h"
#include "backend/store.h"

#include <optional>

class Database;

// What a player's character looks like: one skin and one block model per account, each a file of
// the store. Thread-safe.
class Appearance
{
public:
    enum class Kind { Skin, Model };

    Appearance(Database& database, const Store& store) : m_database(database), m_store(store) {}

    // `content` as checked already.
    void set(Kind kind, const Account& account, const QByteArray& content);
    // The digest of an account's file, or nothing: no such account, or none uploaded.
    std::optional<QByteArray> find(Kind kind, const QString& uuid);

private:
    Database& m_database;
    const Store& m_store;
};
