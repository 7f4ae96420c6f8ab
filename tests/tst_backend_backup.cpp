#include "tests/support/backend_process.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

// A backup is taken while the server runs, and brings back what was there at that moment.
class TestBackendBackup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void backsUpAndRestores();
    void leavesNothingOfFailedBackup();
    void refusesTarget();
};

namespace {

const QString password = u"correct horse"_s;

int statusOf(const BackendProcess& backend, const QByteArray& path, const QString& name)
{
    return raw_http::postJson(backend.port(), path,
                              {{u"username"_s, name}, {u"password"_s, password}})
        .status;
}

bool publishLauncher(const BackendProcess& backend, const QByteArray& content)
{
    QFile file(backend.data() + u"/launcher-build"_s);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(content);
    file.close();
    const QStringList words{u"publish"_s, u"launcher"_s, u"--version"_s,
                            u"9"_s,       u"--file"_s,   file.fileName()};
    return backend.command(words).exitCode == 0;
}

// Where a backup is served from: the copy itself and, with PostgreSQL, another database.
QStringList restore(const BackendProcess& other, const QString& copy)
{
    if (!BackendProcess::isOnPostgres())
        return {u"--data"_s, copy};
    const QString database = other.databaseLocation();
    const int restored =
        QProcess::execute(u"pg_restore"_s, {u"--no-owner"_s, u"--dbname"_s, database,
                                            QString(copy + "/database.dump"_L1)});
    if (restored != 0)
        return {};
    return {u"--data"_s, copy, u"--database"_s, database};
}

} // namespace

void TestBackendBackup::backsUpAndRestores()
{
    BackendProcess backend;
    QVERIFY2(backend.start(), backend.output().constData());
    QCOMPARE(statusOf(backend, "/auth/register", u"Saved"_s), 200);
    QVERIFY(publishLauncher(backend, "saved build"));
    const QTemporaryDir elsewhere;
    const QString copy = elsewhere.filePath(u"not/yet/there"_s);
    const auto run = backend.command({u"backup"_s, u"--to"_s, QString(copy + u'/')});
    QVERIFY2(run.exitCode == 0, run.errors.constData());
    // What comes later is not in it.
    QCOMPARE(statusOf(backend, "/auth/register", u"Later"_s), 200);
    QVERIFY(publishLauncher(backend, "later build"));
    QCOMPARE(backend.stop(), 0);

    BackendProcess restored;
    const QStringList location = restore(restored, copy);
    const auto checked = BackendProcess::runProgram(QStringList{u"check"_s} + location);
    QVERIFY2(checked.output.contains("All is well: 1 files, 0 unused"), checked.errors.constData());
    QVERIFY2(restored.start(location), restored.output().constData());
    QCOMPARE(statusOf(restored, "/auth/login", u"Saved"_s), 200);
    QCOMPARE(statusOf(restored, "/auth/login", u"Later"_s), 401);
    const QString url = raw_http::get(restored.port(), "/manifest.json")
                            .json()[u"launcherLinux"_s][u"url"_s]
                            .toString();
    QCOMPARE(raw_http::get(restored.port(), url.mid(restored.origin().size()).toLatin1()).body,
             "saved build");
}

void TestBackendBackup::leavesNothingOfFailedBackup()
{
    const BackendProcess backend;
    QVERIFY(publishLauncher(backend, "a build of some bytes"));
    QDirIterator stored(backend.data() + u"/files"_s, QDir::Files, QDirIterator::Subdirectories);
    QFile file(stored.next());
    QVERIFY(file.resize(5));
    const QTemporaryDir elsewhere;
    const auto run = backend.command({u"backup"_s, u"--to"_s, elsewhere.filePath(u"copy"_s)});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains("is damaged; see \"check\""), run.errors.constData());
    QVERIFY(QDir(elsewhere.path()).isEmpty());
}

void TestBackendBackup::refusesTarget()
{
    const BackendProcess backend;
    QVERIFY(publishLauncher(backend, "a build"));
    const QTemporaryDir there;
    const auto run = backend.command({u"backup"_s, u"--to"_s, there.path()});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains("exists already"), run.errors.constData());
    QVERIFY(QDir(there.path()).isEmpty());
    QCOMPARE(backend.command({u"backup"_s, u"--to"_s, u"/proc/copy"_s}).exitCode, 1);
    QCOMPARE(backend.command({u"backup"_s}).exitCode, 2);
}

QTEST_GUILESS_MAIN(TestBackendBackup)
#include "tst_backend_backup.moc"
