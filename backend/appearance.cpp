#include "backend/appearance.h"

#include "backend/database.h"
#include "backend/store_lock.h"

using namespace Qt::StringLiterals;

namespace {

QString columnOf(Appearance::Kind kind)
{
    return kind == Appearance::Kind::Skin ? u"skin"_s : u"model"_s;
}

} // namespace

void Appearance::set(Kind kind, const Account& account, const QByteArray& content)
{
    const StoreLock lock(m_store, StoreLock::Mode::Shared, StoreLock::Patience::Client);
    const StoredFile file = m_store.add(content);
    Transaction transaction(m_database);
    Store::note(m_database, file);
    m_database.run(u"UPDATE accounts SET %1 = ? WHERE uuid = ?"_s.arg(columnOf(kind)),
                   {QString::fromLatin1(file.sha256), account.uuid});
    transaction.commit();
}

std::optional<QByteArray> Appearance::find(Kind kind, const QString& uuid)
{
    const QVariant file =
        m_database.value(u"SELECT %1 FROM accounts WHERE uuid = ?"_s.arg(columnOf(kind)), {uuid});
    if (file.isNull())
        return {};
    return file.toByteArray();
}
