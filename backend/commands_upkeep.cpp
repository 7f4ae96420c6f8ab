#include "backend/checker.h"
#include "backend/command.h"
#include "backend/commands.h"
#include "backend/progress_bar.h"
#include "backend/site.h"
#include "backend/store_lock.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace {

// Every file that the database knows, copied under its own digest; a damaged one ends it.
int copyFiles(Database& database, const Store& from, const Store& to)
{
    ProgressBar bar(u"Copying"_s);
    const qint64 total = database.value(u"SELECT COUNT(*) FROM files"_s).toLongLong();
    int copied = 0;
    QSqlQuery row = database.run(u"SELECT sha256 FROM files"_s);
    while (row.next()) {
        const QByteArray sha256 = row.value(0).toByteArray();
        QFile file(from.pathOf(sha256));
        if (!file.open(QIODevice::ReadOnly))
            throw Fault(u"cannot read %1: %2"_s.arg(file.fileName(), file.errorString()));
        if (to.add(file).sha256 != sha256)
            throw Fault(u"%1 is damaged; see \"check\""_s.arg(file.fileName()));
        bar.set(++copied, total);
    }
    return copied;
}

} // namespace

namespace commands {

int check(const QStringList& words)
{
    command::Options options(u"check"_s,
                             u"Verifies the database and every stored file. Exit code 1 "
                             "when something is damaged. Works while the server runs."_s);
    if (const auto over = options.parse(words))
        return *over;
    Site site(options.site());
    // So that the sweep does not take a file from under the check.
    const StoreLock lock(site.store(), StoreLock::Mode::Shared);
    Checker::Report report;
    {
        ProgressBar bar(u"Checking"_s);
        report = Checker(site.database(), site.store()).run([&bar](qint64 done, qint64 total) {
            bar.set(done, total);
        });
    }
    for (const QString& fault : std::as_const(report.faults))
        command::print(u"damaged: "_s + fault);
    if (!report.faults.isEmpty())
        return command::fail(u"%1 of what is stored is damaged"_s.arg(report.faults.size()));
    command::print(u"All is well: %1 files, %2 unused."_s.arg(report.files).arg(report.unused));
    return command::Success;
}

int backup(const QStringList& words)
{
    command::Options options(
        u"backup"_s,
        u"Copies the data directory, whole and consistent, also while the server runs. The copy is "
        "a data directory itself: to restore it, serve it. With --database only the files are "
        "copied; use pg_dump for the database."_s);
    options.require(u"to"_s, u"A directory that does not exist yet."_s, u"DIR"_s);
    if (const auto over = options.parse(words))
        return *over;
    const QString target = options.value(u"to"_s);
    if (QFile::exists(target))
        return command::fail(u"%1 exists already"_s.arg(target));

    Site site(options.site());
    const StoreLock lock(site.store(), StoreLock::Mode::Shared);
    const Store copy(target);
    if (site.database().isPostgres()) {
        const int files = copyFiles(site.database(), site.store(), copy);
        command::print(u"Copied %1 files. Back up the database with pg_dump."_s.arg(files));
        return command::Success;
    }
    // The database first: every file that this snapshot knows is there, and stays while we look.
    const QString snapshot = Site::databaseFile(target);
    site.database().run(u"VACUUM INTO ?"_s, {snapshot});
    Database database(snapshot);
    const int files = copyFiles(database, site.store(), copy);
    command::print(u"Backed up the database and %1 files to %2."_s.arg(files).arg(target));
    return command::Success;
}

} // namespace commands
