#pragma once

#include "backend/base/outcome.h"
#include "backend/data/allowance.h"
#include "backend/data/store.h"
#include "backend/looks/look.h"

#include <optional>

class Database;

// What a player's character looks like: one file of the store for each kind of look. One that is
// replaced goes at once, unless something else refers to an equal one: no account has more on the
// disk than it shows. Thread-safe. Throws Fault when disk or database refuse, Busy when they are
// held for too long.
class Appearance
{
public:
    // Of one account, by the hour. 0: as much as it likes.
    struct Limits
    {
        int uploads = 60;
        qint64 bytes = 32LL * 1024 * 1024; // as they are sent
    };
    Appearance(Database& database, const Store& store, Limits limits);

    // Counts an upload before it is looked at, as looking costs most.
    Outcome<Done> admit(const QString& account, qint64 bytes);
    // `content` as the look accepted it. Throws when nothing was changed; nothing is left then
    // either, unless PostgreSQL was lost meanwhile.
    Outcome<Done> set(const Look& look, const QString& account, const QByteArray& content);
    // Whether there was one.
    bool remove(const Look& look, const QString& account);
    // The digest of an account's file, or nothing: no such account, or none uploaded. The file may
    // be replaced, and gone, at any time after that.
    std::optional<QByteArray> find(const Look& look, const QString& account);

private:
    // The digest of what it was before, empty when it was nothing; nothing when the account is
    // gone.
    std::optional<QByteArray> replace(const Look& look, const QString& account,
                                      const std::optional<StoredFile>& file);
    void removeUnused(const QByteArray& sha256);

    Database& m_database;
    const Store& m_store;
    const Allowance m_uploads;
};
