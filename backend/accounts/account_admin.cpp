#include "backend/accounts/account_admin.h"

#include "backend/accounts/accounts.h"
#include "backend/accounts/passwords.h"
#include "backend/data/database.h"

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

Outcome<Done> AccountAdmin::resetPassword(const QString& name, const QString& password)
{
    if (const auto refusal = Accounts::refusalOfPassword(password))
        return *refusal;
    const auto hash = m_passwords.hash(password.toUtf8());
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
