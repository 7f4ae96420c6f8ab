#include "backend/looks/appearance.h"

#include "backend/base/log.h"
#include "backend/base/refusals.h"
#include "backend/data/database.h"
#include "backend/data/store_lock.h"
#include "backend/data/unused_files.h"

using namespace Qt::StringLiterals;

Appearance::Appearance(Database& database, const Store& store, Limits limits)
    : m_database(database)
    , m_store(store)
    , m_uploads{.what = u"uploads"_s,
                .seconds = 60LL * 60,
                .times = limits.uploads,
                .amount = limits.bytes}
{
}

Outcome<Done> Appearance::admit(const QString& account, qint64 bytes)
{
    Transaction transaction(m_database);
    if (const int seconds = m_uploads.spend(m_database, account, bytes); seconds > 0)
        return refusals::tooMany(u"uploads"_s, seconds);
    transaction.commit();
    return Done();
}

Outcome<Done> Appearance::set(const Look& look, const QString& account, const QByteArray& content)
{
    const StoreLock lock(m_store, StoreLock::Mode::Shared, Patience::Client);
    StoredFile file = m_store.add(content);
    std::optional<QByteArray> before;
    try {
        before = replace(look, account, file);
    } catch (const std::exception&) {
        // What PostgreSQL was asked to commit before it was lost may be committed yet.
        file.lock.reset();
        if (!m_database.isPostgres())
            removeUnused(file.sha256);
        throw;
    }
    // Others may be waiting for it while we wait for theirs.
    file.lock.reset();
    if (!before) {
        removeUnused(file.sha256);
        return refusals::noSession();
    }
    if (!before->isEmpty() && *before != file.sha256)
        removeUnused(*before);
    return Done();
}

bool Appearance::remove(const Look& look, const QString& account)
{
    const auto before = replace(look, account, {});
    if (!before || before->isEmpty())
        return false;
    removeUnused(*before);
    return true;
}

std::optional<QByteArray> Appearance::replace(const Look& look, const QString& account,
                                              const std::optional<StoredFile>& file)
{
    Transaction transaction(m_database);
    m_database.lockRow(u"accounts"_s, u"uuid"_s, account);
    const auto before = find(look, account);
    if (file)
        Store::note(m_database, *file);
    const QSqlQuery set =
        m_database.run(u"UPDATE accounts SET %1 = ? WHERE uuid = ?"_s.arg(look.name),
                       {file ? QVariant(QString::fromLatin1(file->sha256)) : QVariant(), account});
    if (set.numRowsAffected() != 1)
        return {};
    transaction.commit();
    return before.value_or(QByteArray());
}

// The upload has its answer, whatever comes of this: what stays is the sweep's.
void Appearance::removeUnused(const QByteArray& sha256)
{
    try {
        unused_files::remove(m_database, m_store, sha256);
    } catch (const std::exception& error) {
        logging::error(error);
    }
}

std::optional<QByteArray> Appearance::find(const Look& look, const QString& account)
{
    const QVariant file =
        m_database.value(u"SELECT %1 FROM accounts WHERE uuid = ?"_s.arg(look.name), {account});
    if (file.isNull())
        return {};
    return file.toByteArray();
}
