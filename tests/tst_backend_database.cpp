#include "backend/data/database.h"

#include "backend/base/outcome.h"
#include "tests/support/backend_process.h"

#include <QTest>

using namespace Qt::StringLiterals;

// How a database gets from the tables of one version of the program to those of the next.
class TestBackendDatabase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesTheMissingStepsOnly();
    void keepsTheOlderTablesWhenAStepFails();
    void refusesNewerDatabase();
};

namespace {

const QStringList first{u"CREATE TABLE pets (name TEXT NOT NULL)"_s,
                        u"INSERT INTO pets (name) VALUES ('Rex')"_s};
const QStringList second{u"ALTER TABLE pets ADD COLUMN age INTEGER NOT NULL DEFAULT 3"_s,
                         u"CREATE TABLE toys (name TEXT NOT NULL)"_s};

int versionOf(Database& database)
{
    return database.value(u"SELECT version FROM schema_version"_s).toInt();
}

QByteArray faultOfMigration(Database& database, const QList<QStringList>& steps)
{
    try {
        database.migrate(steps);
    } catch (const Fault& fault) {
        return fault.text().toUtf8();
    }
    return {};
}

} // namespace

void TestBackendDatabase::takesTheMissingStepsOnly()
{
    const BackendProcess place;
    Database database(place.databaseLocation());
    database.migrate({first});
    QCOMPARE(versionOf(database), 1);
    database.run(u"INSERT INTO pets (name) VALUES ('Tom')"_s);

    // Taken twice, the first step would fail; the rows of the older version are still there.
    database.migrate({first, second});
    QCOMPARE(versionOf(database), 2);
    QCOMPARE(database.value(u"SELECT age FROM pets WHERE name = 'Tom'"_s).toInt(), 3);
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM pets"_s).toInt(), 2);
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM toys"_s).toInt(), 0);
    QCOMPARE(faultOfMigration(database, {first, second}), QByteArray());
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM schema_version"_s).toInt(), 1);
}

void TestBackendDatabase::keepsTheOlderTablesWhenAStepFails()
{
    const BackendProcess place;
    Database database(place.databaseLocation());
    database.migrate({first});
    const QStringList third{u"DELETE FROM pets"_s, u"INSERT INTO nowhere (name) VALUES ('x')"_s};
    QVERIFY(faultOfMigration(database, {first, second, third}).contains("nowhere"));

    QCOMPARE(versionOf(database), 1);
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM pets"_s).toInt(), 1);
    // Not even the step that went well: it can be taken again.
    database.migrate({first, second});
    QCOMPARE(versionOf(database), 2);
}

void TestBackendDatabase::refusesNewerDatabase()
{
    const BackendProcess backend;
    const QStringList publish{u"publish"_s, u"news"_s, u"--title"_s, u"Hello"_s};
    QCOMPARE(backend.command(publish).exitCode, 0);
    QVERIFY(backend.runSql(u"UPDATE schema_version SET version = 99"_s));
    for (const QStringList& words : {QStringList{u"list"_s}, publish, QStringList{u"serve"_s}}) {
        const auto run = backend.command(words);
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.errors.contains("written by a newer version"), run.errors.constData());
    }
}

QTEST_GUILESS_MAIN(TestBackendDatabase)
#include "tst_backend_database.moc"
