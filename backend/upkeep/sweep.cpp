#include "backend/upkeep/sweep.h"

#include "backend/accounts/accounts.h"
#include "backend/data/allowance.h"
#include "backend/data/database.h"
#include "backend/data/store.h"
#include "backend/data/store_lock.h"
#include "backend/data/unused_files.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSet>

using namespace Qt::StringLiterals;

namespace {

int sweepSessions(Database& database)
{
    const qint64 oldest = QDateTime::currentSecsSinceEpoch() - Accounts::sessionSeconds;
    return database.run(u"DELETE FROM sessions WHERE last_used <= ?"_s, {oldest}).numRowsAffected();
}

void sweepFormerNames(Database& database)
{
    const qint64 oldest = QDateTime::currentSecsSinceEpoch() - Accounts::nameSeconds;
    database.run(u"DELETE FROM former_names WHERE since <= ?"_s, {oldest});
}

} // namespace

namespace sweep {

Swept run(Database& database, const Store& store)
{
    Swept swept;
    swept.sessions = sweepSessions(database);
    sweepFormerNames(database);
    Allowance::sweep(database);
    // Nobody is between writing a file and referring to it while this is held.
    const StoreLock lock(store, StoreLock::Mode::Alone);
    unused_files::forgetAll(database);
    QSet<QByteArray> known;
    QSqlQuery rows = database.run(u"SELECT sha256 FROM files"_s);
    while (rows.next())
        known.insert(rows.value(0).toByteArray());
    const QList<QByteArray> stored = store.list();
    for (const QByteArray& sha256 : stored) {
        if (!known.contains(sha256) && QFile::remove(store.pathOf(sha256)))
            ++swept.files;
    }
    store.clearTemporary();
    return swept;
}

} // namespace sweep
