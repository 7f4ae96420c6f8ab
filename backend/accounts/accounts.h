#pragma once

#include "backend/base/outcome.h"

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
// unique whatever their case; a uuid never changes. A session is a random token of 256 bits that
// only its owner knows: the database holds its digest. It lasts 30 days from its last use.
// Thread-safe.
class Accounts
{
public:
    static constexpr qint64 sessionSeconds = 30LL * 24 * 60 * 60;

    Accounts(Database& database, Passwords& passwords);

    Outcome<Session> registerAccount(const QString& name, const QString& password);
    Outcome<Session> login(const QString& name, const QString& password);
    Outcome<Account> byToken(const QByteArray& token);
    Outcome<Done> logout(const QByteArray& token);
    Outcome<Account> rename(const Account& account, const QString& newName);

    // What is wrong with a password, or nothing.
    static std::optional<Refusal> refusalOfPassword(const QString& password);

private:
    Session startSession(const Account& account);

    Database& m_database;
    Passwords& m_passwords;
};
