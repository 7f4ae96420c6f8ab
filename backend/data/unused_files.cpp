#include "backend/data/unused_files.h"

#include "backend/data/database.h"
#include "backend/data/removal_lock.h"
#include "backend/data/store.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace {

constexpr auto deleteUnused =
    "DELETE FROM files WHERE"
    " NOT EXISTS (SELECT 1 FROM accounts WHERE skin = files.sha256)"
    " AND NOT EXISTS (SELECT 1 FROM accounts WHERE model = files.sha256)"
    " AND NOT EXISTS (SELECT 1 FROM versions WHERE file = files.sha256)"
    " AND NOT EXISTS (SELECT 1 FROM launchers WHERE file = files.sha256)"
    " AND NOT EXISTS (SELECT 1 FROM runtimes WHERE file = files.sha256)"_L1;

} // namespace

namespace unused_files {

void forgetAll(Database& database)
{
    database.run(deleteUnused);
}

bool remove(Database& database, const Store& store, const QByteArray& sha256)
{
    const auto lock = RemovalLock::toRemove(store, sha256);
    if (!lock)
        return false;
    const QString name = QString::fromLatin1(sha256);
    Transaction transaction(database);
    database.run(deleteUnused + " AND sha256 = ?"_L1, {name});
    if (database.value(u"SELECT 1 FROM files WHERE sha256 = ?"_s, {name}).isValid())
        return false;
    // First the entry, then the file: whatever happens in between, no entry lacks its file.
    transaction.commit();
    return QFile::remove(store.pathOf(sha256));
}

} // namespace unused_files
