#pragma once

#include "backend/base/outcome.h"
#include "backend/data/allowance.h"

#include <QByteArray>
#include <QString>

#include <optional>

class Database;
class Passwords;

struct Account
{
    QString uuid;
    QString name;
};

struct Session
{
    Account account;
    QString token;
};

// Who may play: registering, sessions, names. Names are 3 to 16 letters, digits and underscores,
// unique whatever their case; a uuid never changes. A name that was given up is kept for its former
// owner for 30 days. A session is a random token of 256 bits that only its owner knows: the
// database holds its digest. It lasts 30 days from its last use, or until its account has too many:
// then the one that was used least lately ends, so that who can log in never is locked out.
// Thread-safe. Throws Fault when the database refuses, Busy when it is held for too long.
class Accounts
{
public:
    static constexpr qint64 sessionSeconds = 30LL * 24 * 60 * 60;
    static constexpr qint64 nameSeconds = 30LL * 24 * 60 * 60;

    // Of one account. 0: as many as they like.
    struct Limits
    {
        int sessions = 20;
        int renamesPerDay = 5;
    };
    Accounts(Database& database, Passwords& passwords, Limits limits);

    Outcome<Session> registerAccount(const QString& name, const QString& password);
    Outcome<Session> login(const QString& name, const QString& password);
    Outcome<Account> byToken(const QByteArray& token);
    Outcome<Done> logout(const QByteArray& token);
    Outcome<Account> rename(const Account& account, const QString& newName);

    // What is wrong with a password, or nothing.
    static std::optional<Refusal> refusalOfPassword(const QString& password);

private:
    // Within a transaction; nothing when there is no such account.
    std::optional<Session> startSession(const Account& account);
    std::optional<Refusal> refusalOfTaking(const QString& key, const QString& account);

    Database& m_database;
    Passwords& m_passwords;
    const Limits m_limits;
    const Allowance m_renames;
};
