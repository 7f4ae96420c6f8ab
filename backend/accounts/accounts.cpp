#include "backend/accounts/accounts.h"

#include "backend/accounts/passwords.h"
#include "backend/base/digest.h"
#include "backend/data/database.h"

#include <QDateTime>
#include <QUuid>

#include <sodium.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Not every request writes: a session's last use is noted at most once an hour.
constexpr qint64 lastUseGrainSeconds = 60 * 60;

qint64 now()
{
    return QDateTime::currentSecsSinceEpoch();
}

Refusal tooBusy()
{
    return {503, u"The server is busy. Try again in a moment."_s, {}, 1};
}

Refusal nameTaken()
{
    return {409, u"That username is taken."_s};
}

Refusal noSession()
{
    return {401, u"You are not logged in. Log in again."_s};
}

std::optional<Refusal> refusalOfName(const QString& name)
{
    const bool fits =
        name.size() >= 3 && name.size() <= 16 && std::all_of(name.begin(), name.end(), [](QChar c) {
            return c.unicode() < 128 && (c.isLetterOrNumber() || c == u'_');
        });
    if (fits)
        return {};
    return Refusal{400, u"A username has 3 to 16 letters, digits or underscores."_s};
}

QString tokenHash(const QByteArray& token)
{
    return QString::fromLatin1(Digest::of(token));
}

} // namespace

Accounts::Accounts(Database& database, Passwords& passwords)
    : m_database(database), m_passwords(passwords)
{
}

Outcome<Session> Accounts::registerAccount(const QString& name, const QString& password)
{
    if (const auto refusal = refusalOfName(name))
        return *refusal;
    if (const auto refusal = refusalOfPassword(password))
        return *refusal;
    const QString key = name.toLower();
    const QString taken = u"SELECT uuid FROM accounts WHERE name_key = ?"_s;
    if (m_database.value(taken, {key}).isValid())
        return nameTaken();
    const auto hash = m_passwords.hash(password.toUtf8());
    if (!hash)
        return tooBusy();

    const Account account{QUuid::createUuid().toString(QUuid::WithoutBraces), name};
    Transaction transaction(m_database);
    // Two may have asked for the same name while the hashes were made; the first one has it.
    const QSqlQuery inserted =
        m_database.run(u"INSERT INTO accounts (uuid, name, name_key, password_hash, created)"
                       " VALUES (?, ?, ?, ?, ?) ON CONFLICT (name_key) DO NOTHING"_s,
                       {account.uuid, name, key, QString::fromLatin1(*hash), now()});
    if (inserted.numRowsAffected() != 1)
        return nameTaken();
    Session session = startSession(account);
    transaction.commit();
    return session;
}

Outcome<Session> Accounts::login(const QString& name, const QString& password)
{
    const QVariantList found = m_database.row(
        u"SELECT uuid, name, password_hash, disabled FROM accounts WHERE name_key = ?"_s,
        {name.toLower()});
    const QByteArray given = password.toUtf8();
    // An unknown name costs the same hash as a wrong password and gets the same answer.
    const auto verified = found.isEmpty() ? m_passwords.verifyNobody(given)
                                          : m_passwords.verify(found[2].toByteArray(), given);
    if (!verified)
        return tooBusy();
    if (!*verified)
        return Refusal{401, u"Wrong username or password."_s};
    if (found[3].toBool())
        return Refusal{403, u"This account is disabled."_s};
    return startSession({found[0].toString(), found[1].toString()});
}

Session Accounts::startSession(const Account& account)
{
    QByteArray random(32, '\0');
    randombytes_buf(random.data(), static_cast<size_t>(random.size()));
    const QByteArray token = random.toHex();
    m_database.run(u"INSERT INTO sessions (token_hash, account, last_used) VALUES (?, ?, ?)"_s,
                   {tokenHash(token), account.uuid, now()});
    return {account, QString::fromLatin1(token)};
}

Outcome<Account> Accounts::byToken(const QByteArray& token)
{
    const QVariantList found = m_database.row(
        u"SELECT a.uuid, a.name, s.last_used FROM sessions s JOIN accounts a ON a.uuid = s.account"
        " WHERE s.token_hash = ? AND s.last_used > ? AND a.disabled = 0"_s,
        {tokenHash(token), now() - sessionSeconds});
    if (found.isEmpty())
        return noSession();
    const Account account{found[0].toString(), found[1].toString()};
    if (found[2].toLongLong() < now() - lastUseGrainSeconds)
        m_database.run(u"UPDATE sessions SET last_used = ? WHERE token_hash = ?"_s,
                       {now(), tokenHash(token)});
    return account;
}

Outcome<Done> Accounts::logout(const QByteArray& token)
{
    const QSqlQuery ended =
        m_database.run(u"DELETE FROM sessions WHERE token_hash = ?"_s, {tokenHash(token)});
    if (ended.numRowsAffected() != 1)
        return noSession();
    return Done();
}

Outcome<Account> Accounts::rename(const Account& account, const QString& newName)
{
    if (const auto refusal = refusalOfName(newName))
        return *refusal;
    const QString key = newName.toLower();
    const auto isTaken = [&] {
        return m_database
            .value(u"SELECT 1 FROM accounts WHERE name_key = ? AND uuid <> ?"_s,
                   {key, account.uuid})
            .isValid();
    };
    if (isTaken())
        return nameTaken();
    try {
        m_database.run(u"UPDATE accounts SET name = ?, name_key = ? WHERE uuid = ?"_s,
                       {newName, key, account.uuid});
    } catch (const Fault&) {
        // Somebody else may have been faster in between; then the uniqueness of names has spoken.
        if (isTaken())
            return nameTaken();
        throw;
    }
    return Account{account.uuid, newName};
}

std::optional<Refusal> Accounts::refusalOfPassword(const QString& password)
{
    const qsizetype characters = password.toUcs4().size();
    if (password.isValidUtf16() && characters >= 8 && characters <= 128)
        return {};
    return Refusal{400, u"A password has 8 to 128 characters."_s};
}
