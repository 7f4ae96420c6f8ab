#include "backend/accounts/accounts.h"

#include "backend/accounts/passwords.h"
#include "backend/base/digest.h"
#include "backend/base/refusals.h"
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

Refusal wrongNameOrPassword()
{
    return {401, u"Wrong username or password."_s};
}

Refusal nameTaken()
{
    return {409, u"That username is taken."_s};
}

Refusal nameKept()
{
    return {409, u"That username is kept for its former owner for a while."_s};
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

Accounts::Accounts(Database& database, Passwords& passwords, Limits limits)
    : m_database(database)
    , m_passwords(passwords)
    , m_limits(limits)
    , m_renames{.what = u"renames"_s, .seconds = 24LL * 60 * 60, .times = limits.renamesPerDay}
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
    if (const auto refusal = refusalOfTaking(key, {}))
        return *refusal;
    const auto hash = m_passwords.hash(password.toUtf8());
    if (!hash)
        return refusals::tooBusy();

    const Account account{QUuid::createUuid().toString(QUuid::WithoutBraces), name};
    Transaction transaction(m_database);
    // Two may have asked for the same name while the hashes were made; the first one has it.
    const QSqlQuery inserted =
        m_database.run(u"INSERT INTO accounts (uuid, name, name_key, password_hash, created)"
                       " VALUES (?, ?, ?, ?, ?) ON CONFLICT (name_key) DO NOTHING"_s,
                       {account.uuid, name, key, QString::fromLatin1(*hash), now()});
    if (inserted.numRowsAffected() != 1)
        return nameTaken();
    // Its owner may have given it up in between: only now can nobody do so any more.
    if (const auto refusal = refusalOfTaking(key, account.uuid))
        return *refusal;
    const auto session = startSession(account);
    if (!session)
        throw Fault(u"an account is gone within its transaction"_s);
    transaction.commit();
    return *session;
}

Outcome<Session> Accounts::login(const QString& name, const QString& password)
{
    // What no name can be, a database may not even take for a text.
    const QVariantList found =
        refusalOfName(name)
            ? QVariantList()
            : m_database.row(
                  u"SELECT uuid, name, password_hash, disabled FROM accounts WHERE name_key = ?"_s,
                  {name.toLower()});
    const QByteArray given = password.toUtf8();
    // An unknown name costs the same hash as a wrong password and gets the same answer.
    const auto verified = found.isEmpty() ? m_passwords.verifyNobody(given)
                                          : m_passwords.verify(found[2].toByteArray(), given);
    if (!verified)
        return refusals::tooBusy();
    if (!*verified)
        return wrongNameOrPassword();
    if (found[3].toBool())
        return Refusal{403, u"This account is disabled."_s};
    Transaction transaction(m_database);
    auto session = startSession({found[0].toString(), found[1].toString()});
    if (!session)
        return wrongNameOrPassword(); // Deleted in between.
    transaction.commit();
    return *session;
}

std::optional<Session> Accounts::startSession(const Account& account)
{
    if (m_limits.sessions > 0) {
        m_database.lockRow(u"accounts"_s, u"uuid"_s, account.uuid);
        // The new one is not among them: a clock that was put back would make it the oldest.
        m_database.run(u"DELETE FROM sessions WHERE account = ? AND token_hash NOT IN"
                       " (SELECT token_hash FROM sessions WHERE account = ?"
                       " ORDER BY last_used DESC LIMIT ?)"_s,
                       {account.uuid, account.uuid, m_limits.sessions - 1});
    }
    QByteArray random(32, '\0');
    randombytes_buf(random.data(), static_cast<size_t>(random.size()));
    const QByteArray token = random.toHex();
    const QSqlQuery started =
        m_database.run(u"INSERT INTO sessions (token_hash, account, last_used)"
                       " SELECT CAST(? AS TEXT), uuid, CAST(? AS BIGINT) FROM accounts"
                       " WHERE uuid = ?"_s,
                       {tokenHash(token), now(), account.uuid});
    if (started.numRowsAffected() != 1)
        return {};
    return Session{account, QString::fromLatin1(token)};
}

Outcome<Account> Accounts::byToken(const QByteArray& token)
{
    const QVariantList found = m_database.row(
        u"SELECT a.uuid, a.name, s.last_used FROM sessions s JOIN accounts a ON a.uuid = s.account"
        " WHERE s.token_hash = ? AND s.last_used > ? AND a.disabled = 0"_s,
        {tokenHash(token), now() - sessionSeconds});
    if (found.isEmpty())
        return refusals::noSession();
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
        return refusals::noSession();
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
    Transaction transaction(m_database);
    if (const int seconds = m_renames.spend(m_database, account.uuid, 1); seconds > 0)
        return refusals::tooMany(u"changes of the username"_s, seconds);
    m_database.lockRow(u"accounts"_s, u"uuid"_s, account.uuid);
    const QVariant old =
        m_database.value(u"SELECT name_key FROM accounts WHERE uuid = ?"_s, {account.uuid});
    if (!old.isValid())
        return refusals::noSession(); // Deleted in between.
    const QString oldKey = old.toString();
    try {
        m_database.run(u"UPDATE accounts SET name = ?, name_key = ? WHERE uuid = ?"_s,
                       {newName, key, account.uuid});
    } catch (const Busy&) {
        throw;
    } catch (const Fault&) {
        // Somebody else may have been faster in between; then the uniqueness of names has spoken.
        transaction.rollback();
        if (isTaken())
            return nameTaken();
        throw;
    }
    if (const auto refusal = refusalOfTaking(key, account.uuid))
        return *refusal;
    m_database.run(u"DELETE FROM former_names WHERE name_key = ?"_s, {key});
    if (oldKey != key)
        m_database.run(u"INSERT INTO former_names (name_key, account, since) VALUES (?, ?, ?)"
                       " ON CONFLICT (name_key) DO UPDATE SET account = excluded.account,"
                       " since = excluded.since"_s,
                       {oldKey, account.uuid, now()});
    transaction.commit();
    return Account{account.uuid, newName};
}

// A clock that was put back keeps a name for longer; one that is wrong for a moment frees none.
std::optional<Refusal> Accounts::refusalOfTaking(const QString& key, const QString& account)
{
    const QVariant kept = m_database.value(
        u"SELECT 1 FROM former_names WHERE name_key = ? AND account <> ? AND since > ?"_s,
        {key, account, now() - nameSeconds});
    return kept.isValid() ? std::optional(nameKept()) : std::nullopt;
}

std::optional<Refusal> Accounts::refusalOfPassword(const QString& password)
{
    const qsizetype characters = password.toUcs4().size();
    if (password.isValidUtf16() && characters >= 8 && characters <= 128)
        return {};
    return Refusal{400, u"A password has 8 to 128 characters."_s};
}
