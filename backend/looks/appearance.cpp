#include "backend/looks/appearance.h"

#include "backend/data/database.h"
#include "backend/data/store_lock.h"

using namespace Qt::StringLiterals;

void Appearance::set(const Look& look, const QString& account, const QByteArray& content)
{
    const StoreLock lock(m_store, StoreLock::Mode::Shared, Patience::Client);
    const StoredFile file = m_store.add(content);
    Transaction transaction(m_database);
    Store::note(m_database, file);
    m_database.run(u"UPDATE accounts SET %1 = ? WHERE uuid = ?"_s.arg(look.name),
                   {QString::fromLatin1(file.sha256), account});
    transaction.commit();
}

std::optional<QByteArray> Appearance::find(const Look& look, const QString& account)
{
    const QVariant file =
        m_database.value(u"SELECT %1 FROM accounts WHERE uuid = ?"_s.arg(look.name), {account});
    if (file.isNull())
        return {};
    return file.toByteArray();
}
