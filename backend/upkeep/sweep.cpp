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

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// What the clock says, but at most a day more than at the sweep before: when it is wrong for some
// hours, what is not over stays. After a rest of weeks it takes as many sweeps to catch up.
qint64 believableTime(Database& database)
{
    constexpr qint64 day = 24LL * 60 * 60;
    qint64 time = QDateTime::currentSecsSinceEpoch();
    Transaction transaction(database);
    if (const QVariant seen = database.value(u"SELECT seen FROM clock"_s); !seen.isNull())
        time = std::min(time, seen.toLongLong() + day);
    database.run(u"UPDATE clock SET seen = ?"_s, {time});
    transaction.commit();
    return time;
}

int sweepSessions(Database& database, qint64 now)
{
    const qint64 oldest = now - Accounts::sessionSeconds;
    return database.run(u"DELETE FROM sessions WHERE last_used <= ?"_s, {oldest}).numRowsAffected();
}

void sweepFormerNames(Database& database, qint64 now)
{
    const qint64 oldest = now - Accounts::nameSeconds;
    database.run(u"DELETE FROM former_names WHERE since <= ?"_s, {oldest});
}

} // namespace

namespace sweep {

Swept run(Database& database, const Store& store)
{
    Swept swept;
    const qint64 now = believableTime(database);
    swept.sessions = sweepSessions(database, now);
    sweepFormerNames(database, now);
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
