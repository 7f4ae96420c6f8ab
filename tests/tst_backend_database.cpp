#include "backend/data/database.h"

#include "backend/base/outcome.h"
#include "backend/data/schema.h"
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
    void bringsUpDatabaseOfEveryStep_data();
    void bringsUpDatabaseOfEveryStep();
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

void TestBackendDatabase::bringsUpDatabaseOfEveryStep_data()
{
    QTest::addColumn<int>("steps");
    for (int i = 1; i <= schema::migrations().size(); ++i)
        QTest::addRow("%d", i) << i;
}

// Accounts, sessions and what they refer to are as they were, and the server works with them.
void TestBackendDatabase::bringsUpDatabaseOfEveryStep()
{
    QFETCH(int, steps);
    BackendProcess backend;
    {
        Database database(backend.databaseLocation());
        database.migrate(schema::migrations().first(steps));
        QCOMPARE(versionOf(database), steps);
        database.run(
            u"INSERT INTO accounts (uuid, name, name_key, password_hash, created)"
            " VALUES ('00000000-0000-0000-0000-000000000001', 'Veteran', 'veteran', '', 7)"_s);
        // SHA-256 of "token".
        database.run(u"INSERT INTO sessions (token_hash, account, last_used) VALUES"
                     " ('3c469e9d6c5875d37a43f353d4f88e61fcf812c66eee3457465a40b0da4153e0',"
                     " '00000000-0000-0000-0000-000000000001', 4000000000)"_s);
        database.run(u"INSERT INTO news (position, title, date, body) VALUES (1, 'Old', '', '')"_s);
    }
    QVERIFY2(backend.start(), backend.output().constData());
    const auto bearer = raw_http::bearer("token");
    const RawReply valid = raw_http::get(backend.port(), "/auth/validate", {bearer});
    QCOMPARE(valid.json()[u"username"_s].toString(), u"Veteran"_s);
    QVERIFY(raw_http::get(backend.port(), "/manifest.json").body.contains("Old"));
    QCOMPARE(raw_http::post(backend.port(), "/models/upload", "application/json",
                            R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[1,1,1]}]})",
                            {bearer})
                 .status,
             200);
    QCOMPARE(
        raw_http::postJson(backend.port(), "/auth/rename", {{u"username"_s, u"Elder"_s}}, "token")
            .status,
        200);
    Database database(backend.databaseLocation());
    QCOMPARE(versionOf(database), int(schema::migrations().size()));
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM spendings"_s).toInt(), 2);
    QCOMPARE(database.value(u"SELECT name_key FROM former_names"_s).toString(), u"veteran"_s);
}

QTEST_GUILESS_MAIN(TestBackendDatabase)
#include "tst_backend_database.moc"
