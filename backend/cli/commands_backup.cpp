#include "backend/cli/command.h"
#include "backend/cli/commands.h"
#include "backend/cli/progress_bar.h"
#include "backend/data/data_directory.h"
#include "backend/data/removal_lock.h"
#include "backend/data/store_lock.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QUrl>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

// Whether something that is made there would lie in `directory`, by whatever links.
bool isWithin(QString path, const QString& directory)
{
    const QString whole = QFileInfo(directory).canonicalFilePath();
    for (path = QFileInfo(path).absoluteFilePath(); !QDir(path).isRoot();
         path = QFileInfo(path).absolutePath()) {
        if (const QString found = QFileInfo(path).canonicalFilePath(); !found.isEmpty())
            return QString(found + u'/').startsWith(whole + u'/');
    }
    return false;
}

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

void dumpPostgres(const QString& database, const QString& file)
{
    QUrl url(database);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // The words of a process are for everybody to read, its environment is not.
    QUrlQuery parameters(url);
    const QString given = parameters.queryItemValue(u"password"_s, QUrl::FullyDecoded);
    const QString password = given.isEmpty() ? url.password(QUrl::FullyDecoded) : given;
    if (!password.isEmpty())
        environment.insert(u"PGPASSWORD"_s, password);
    parameters.removeAllQueryItems(u"password"_s);
    url.setQuery(parameters);
    url.setPassword({});
    QProcess dump;
    dump.setProcessEnvironment(environment);
    dump.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    dump.start(u"pg_dump"_s, {u"--no-password"_s, u"--format=custom"_s, u"--file"_s, file,
                              u"--dbname"_s, url.toString(QUrl::FullyEncoded)});
    if (!dump.waitForStarted())
        throw Fault(u"cannot run pg_dump (Debian: postgresql-client)"_s);
    dump.waitForFinished(-1);
    if (dump.exitStatus() != QProcess::NormalExit || dump.exitCode() != 0)
        throw Fault(u"pg_dump failed"_s);
}

// Copies it all into a directory; how many files it had. The database first: every file that its
// copy knows is there, and the locks let it stay while we look.
int copyAll(DataDirectory& data, const DataLocation& from, const QString& directory)
{
    const StoreLock lock(data.store(), StoreLock::Mode::Shared);
    const auto kept = RemovalLock::toKeepAll(data.store());
    const Store copy(directory);
    if (data.database().isPostgres()) {
        dumpPostgres(from.database, directory + "/database.dump"_L1);
        return copyFiles(data.database(), data.store(), copy);
    }
    const QString snapshot = DataDirectory::databaseFile(directory);
    data.database().run(u"VACUUM INTO ?"_s, {snapshot});
    Database database(snapshot);
    return copyFiles(database, data.store(), copy);
}

} // namespace

namespace commands {

int backup(const QStringList& words)
{
    command::Options options(
        u"backup"_s,
        u"Copies the data directory, whole and consistent, also while the server runs. The copy is "
        "a data directory itself: to restore it, serve it. With --database it holds the files and "
        "database.dump, made by pg_dump: pg_restore brings that back."_s);
    options.require(u"to"_s, u"A directory that does not exist yet."_s, u"DIR"_s);
    if (const auto over = options.parse(words))
        return *over;
    const QString target = QDir::cleanPath(options.value(u"to"_s));
    if (QFile::exists(target))
        return command::fail(u"%1 exists already"_s.arg(target));
    if (isWithin(target, options.dataLocation().directory))
        return command::fail(u"%1 lies in the data directory itself"_s.arg(target));

    // What bears the name of a backup is a whole one.
    const QString partial = target + ".partial"_L1;
    QDir(partial).removeRecursively();
    const auto tidy = qScopeGuard([&partial] { QDir(partial).removeRecursively(); });
    DataDirectory data(options.dataLocation());
    const int files = copyAll(data, options.dataLocation(), partial);
    if (!QFile::rename(partial, target))
        return command::fail(u"cannot rename %1 to %2"_s.arg(partial, target));
    command::print(u"Backed up the database and %1 files to %2."_s.arg(files).arg(target));
    return command::Success;
}

} // namespace commands
