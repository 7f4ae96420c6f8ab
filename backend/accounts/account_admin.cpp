#include "backend/accounts/account_admin.h"

#include "backend/accounts/accounts.h"
#include "backend/accounts/passwords.h"
#include "backend/data/database.h"
#include "backend/data/unused_files.h"

using namespace Qt::StringLiterals;

QList<ListedAccount> AccountAdmin::list(const QString& part)
{
    QList<ListedAccount> accounts;
    QSqlQuery row = m_database.run(u"SELECT uuid, name, disabled, created,"
                                   " (SELECT COUNT(*) FROM sessions WHERE account = accounts.uuid)"
                                   " FROM accounts ORDER BY name_key"_s);
    while (row.next()) {
        const QString name = row.value(1).toString();
        if (name.contains(part, Qt::CaseInsensitive))
            accounts.append({row.value(0).toString(), name, row.value(2).toBool(),
                             row.value(3).toLongLong(), row.value(4).toInt()});
    }
    return accounts;
}

Outcome<QList<qint64>> AccountAdmin::sessions(const QString& name)
{
    const auto uuid = uuidOf(name);
    if (!uuid)
        return uuid.refusal();
    QList<qint64> uses;
    QSqlQuery row = m_database.run(
        u"SELECT last_used FROM sessions WHERE account = ? ORDER BY last_used DESC"_s, {*uuid});
    while (row.next())
        uses.append(row.value(0).toLongLong());
    return uses;
}

Outcome<Done> AccountAdmin::setDisabled(const QString& name, bool disabled)
{
    Transaction transaction(m_database);
    const auto uuid = uuidOf(name);
    if (!uuid)
        return uuid.refusal();
    m_database.run(u"UPDATE accounts SET disabled = ? WHERE uuid = ?"_s, {int(disabled), *uuid});
    if (disabled)
        endSessions(*uuid);
    transaction.commit();
    return Done();
}

Outcome<Done> AccountAdmin::resetPassword(const QString& name, const QString& password,
                                          Passwords& passwords)
{
    if (const auto refusal = Accounts::refusalOfPassword(password))
        return *refusal;
    const auto hash = passwords.hash(password.toUtf8());
    if (!hash)
        throw Busy(u"too many passwords are being hashed"_s);
    Transaction transaction(m_database);
    const auto uuid = uuidOf(name);
    if (!uuid)
        return uuid.refusal();
    m_database.run(u"UPDATE accounts SET password_hash = ? WHERE uuid = ?"_s,
                   {QString::fromLatin1(*hash), *uuid});
    endSessions(*uuid);
    transaction.commit();
    return Done();
}

Outcome<Done> AccountAdmin::remove(const QString& name, const Store& store)
{
    Transaction transaction(m_database);
    const auto uuid = uuidOf(name);
    if (!uuid)
        return uuid.refusal();
    m_database.lockRow(u"accounts"_s, u"uuid"_s, *uuid);
    const QVariantList looks =
        m_database.row(u"SELECT skin, model FROM accounts WHERE uuid = ?"_s, {*uuid});
    // The rest goes with it: see the schema.
    m_database.run(u"DELETE FROM accounts WHERE uuid = ?"_s, {*uuid});
    transaction.commit();
    for (const QVariant& look : looks) {
        if (!look.isNull())
            unused_files::remove(m_database, store, look.toByteArray());
    }
    return Done();
}

Outcome<QString> AccountAdmin::uuidOf(const QString& name)
{
    const QVariant uuid =
        m_database.value(u"SELECT uuid FROM accounts WHERE name_key = ?"_s, {name.toLower()});
    if (!uuid.isValid())
        return Refusal{404, u"there is no account \"%1\""_s.arg(name)};
    return uuid.toString();
}

void AccountAdmin::endSessions(const QString& uuid)
{
    m_database.run(u"DELETE FROM sessions WHERE account = ?"_s, {uuid});
}
