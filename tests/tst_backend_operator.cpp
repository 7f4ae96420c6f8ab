#include "backend/accounts/accounts.h"
#include "backend/data/data_directory.h"
#include "backend/data/store_lock.h"
#include "backend/looks/appearance.h"

#include "tests/support/backend_process.h"
#include "tests/support/png_files.h"

#include <QDirIterator>
#include <QFile>
#include <QTest>

#include <sys/resource.h>

using namespace Qt::StringLiterals;

// What an operator does by hand, beside a server that runs.
class TestBackendOperator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listsAccountsWithoutHashing();
    void init();
    void deletesAccountWithoutTrace();
    void keepsWhatOthersShow();
    void refusesUploadOfDeletedAccount();
    void listsSessions();
    void removesLooks_data();
    void removesLooks();
    void complainsAboutUnknownAccounts_data();
    void complainsAboutUnknownAccounts();
    void refusesBackupIntoItself_data();
    void refusesBackupIntoItself();
    void keepsSessionsWhenClockJumps();

private:
    struct Player
    {
        QByteArray token;
        QByteArray uuid;
    };
    Player enroll(const QString& name, const QString& password = u"correct horse"_s) const;
    bool dress(const Player& player, QRgb colour = qRgb(1, 2, 3)) const;
    int status(const QByteArray& path, const Player& player = {}) const;
    QStringList files() const;

    std::unique_ptr<BackendProcess> m_backend;
};

namespace {

constexpr auto plainModel = R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[1,1,1]}]})";

long largestChild()
{
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_maxrss / 1024;
}

} // namespace

// The first one: it looks at what the largest child of this process took, in MiB. One hash
// takes 64.
void TestBackendOperator::listsAccountsWithoutHashing()
{
    const BackendProcess backend;
    const DataDirectory made(
        {backend.data(), BackendProcess::isOnPostgres() ? backend.databaseLocation() : QString()});
    QCOMPARE(backend.command({u"list"_s}).exitCode, 0);
    const long usual = largestChild();
    QCOMPARE(backend.command({u"accounts"_s, u"list"_s}).exitCode, 0);
    QVERIFY2(largestChild() < usual + 32,
             QByteArray::number(qlonglong(largestChild())).constData());
}

void TestBackendOperator::init()
{
    m_backend = std::make_unique<BackendProcess>();
    QVERIFY2(m_backend->start(), m_backend->output().constData());
}

TestBackendOperator::Player TestBackendOperator::enroll(const QString& name,
                                                        const QString& password) const
{
    const QJsonObject session =
        raw_http::postJson(m_backend->port(), "/auth/register",
                           {{u"username"_s, name}, {u"password"_s, password}})
            .json();
    return {session[u"token"_s].toString().toLatin1(), session[u"uuid"_s].toString().toLatin1()};
}

bool TestBackendOperator::dress(const Player& player, QRgb colour) const
{
    const auto bearer = raw_http::bearer(player.token);
    const quint16 port = m_backend->port();
    return raw_http::post(port, "/skins/upload", "image/png", png_files::square(64, colour),
                          {bearer})
                   .status == 200 &&
           raw_http::post(port, "/models/upload", "application/json", plainModel, {bearer})
                   .status == 200;
}

int TestBackendOperator::status(const QByteArray& path, const Player& player) const
{
    return raw_http::get(m_backend->port(), path, {raw_http::bearer(player.token)}).status;
}

QStringList TestBackendOperator::files() const
{
    QStringList found;
    QDirIterator all(m_backend->data() + "/files"_L1, QDir::Files | QDir::Hidden,
                     QDirIterator::Subdirectories);
    while (all.hasNext())
        found += all.next();
    return found;
}

void TestBackendOperator::deletesAccountWithoutTrace()
{
    const Player player = enroll(u"Leaving"_s);
    QVERIFY(dress(player));
    QCOMPARE(files().size(), 2);
    QCOMPARE(raw_http::postJson(m_backend->port(), "/auth/rename", {{u"username"_s, u"Gone"_s}},
                                player.token)
                 .status,
             200);
    const auto run = m_backend->command({u"accounts"_s, u"delete"_s, u"gONE"_s});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, "The account gONE is deleted.\n");

    QCOMPARE(files(), {});
    QCOMPARE(status("/auth/validate", player), 401);
    QCOMPARE(status("/skins/" + player.uuid + ".png"), 404);
    QCOMPARE(status("/models/" + player.uuid + ".json"), 404);
    {
        DataDirectory data({m_backend->data(), BackendProcess::isOnPostgres()
                                                   ? m_backend->databaseLocation()
                                                   : QString()});
        for (const QString& table :
             {u"accounts"_s, u"sessions"_s, u"spendings"_s, u"former_names"_s, u"files"_s})
            QVERIFY2(!data.database().value(u"SELECT 1 FROM "_s + table).isValid(),
                     qPrintable(table));
    }
    // Both names are free, and nobody gets in with the old password.
    for (const QString& name : {u"Gone"_s, u"Leaving"_s})
        QVERIFY(!enroll(name, u"another password"_s).token.isEmpty());
    QCOMPARE(raw_http::postJson(m_backend->port(), "/auth/login",
                                {{u"username"_s, u"Gone"_s}, {u"password"_s, u"correct horse"_s}})
                 .status,
             401);
    QVERIFY(m_backend->command({u"check"_s}).output.startsWith("All is well: 0 files"));
}

void TestBackendOperator::keepsWhatOthersShow()
{
    const Player leaving = enroll(u"Leaving"_s);
    const Player staying = enroll(u"Staying"_s);
    QVERIFY(dress(leaving));
    QVERIFY(dress(staying));
    QCOMPARE(files().size(), 2);
    QCOMPARE(m_backend->command({u"accounts"_s, u"delete"_s, u"Leaving"_s}).exitCode, 0);
    QCOMPARE(files().size(), 2);
    QCOMPARE(status("/skins/" + staying.uuid + ".png"), 200);
    QCOMPARE(status("/auth/validate", staying), 200);
}

// Deleted between the judgement of its request and its answer.
void TestBackendOperator::refusesUploadOfDeletedAccount()
{
    DataDirectory data({m_backend->data(), BackendProcess::isOnPostgres()
                                               ? m_backend->databaseLocation()
                                               : QString()});
    Appearance appearance(data.database(), data.store(), {});
    const auto set =
        appearance.set(allLooks[1], u"00000000-0000-0000-0000-000000000000"_s, plainModel);
    QVERIFY(!set);
    QCOMPARE(set.refusal().status, 401);
    QCOMPARE(files(), {});
}

void TestBackendOperator::listsSessions()
{
    enroll(u"Ada"_s);
    for (int i = 0; i < 2; ++i)
        QCOMPARE(
            raw_http::postJson(m_backend->port(), "/auth/login",
                               {{u"username"_s, u"Ada"_s}, {u"password"_s, u"correct horse"_s}})
                .status,
            200);
    QVERIFY(m_backend->runSql(u"UPDATE sessions SET last_used = 1767225600"_s));
    const auto run = m_backend->command({u"accounts"_s, u"sessions"_s, u"Ada"_s});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, "2026-01-01 00:00 UTC\n2026-01-01 00:00 UTC\n2026-01-01 00:00 UTC\n"
                         "The account Ada has 3 sessions.\n");
}

void TestBackendOperator::removesLooks_data()
{
    QTest::addColumn<QStringList>("only");
    QTest::addColumn<int>("skin");
    QTest::addColumn<int>("model");
    QTest::newRow("both") << QStringList() << 404 << 404;
    QTest::newRow("skin") << QStringList{u"--only"_s, u"skin"_s} << 404 << 200;
    QTest::newRow("model") << QStringList{u"--only"_s, u"model"_s} << 200 << 404;
}

void TestBackendOperator::removesLooks()
{
    QFETCH(QStringList, only);
    QFETCH(int, skin);
    QFETCH(int, model);
    const Player player = enroll(u"Ada"_s);
    QVERIFY(dress(player));
    const QStringList words = QStringList{u"looks"_s, u"remove"_s, u"ada"_s} + only;
    const auto run = m_backend->command(words);
    QVERIFY2(run.exitCode == 0, run.errors.constData());
    QCOMPARE(run.output.contains("The account ada has no skin any more."), skin == 404);
    QCOMPARE(run.output.contains("The account ada has no model any more."), model == 404);
    QCOMPARE(status("/skins/" + player.uuid + ".png"), skin);
    QCOMPARE(status("/models/" + player.uuid + ".json"), model);
    QCOMPARE(files().size(), (skin == 200 ? 1 : 0) + (model == 200 ? 1 : 0));
    QVERIFY(m_backend->command(words).output.contains("The account ada had no "));
    // The account goes on as before.
    QVERIFY(dress(player, qRgb(4, 5, 6)));
}

void TestBackendOperator::complainsAboutUnknownAccounts_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::newRow("delete") << QStringList{u"accounts"_s, u"delete"_s};
    QTest::newRow("sessions") << QStringList{u"accounts"_s, u"sessions"_s};
    QTest::newRow("looks") << QStringList{u"looks"_s, u"remove"_s};
}

void TestBackendOperator::complainsAboutUnknownAccounts()
{
    QFETCH(QStringList, words);
    const auto run = m_backend->command(words + QStringList{u"Nobody"_s});
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.errors, "error: there is no account \"Nobody\"\n");
    QCOMPARE(m_backend->command(words).exitCode, 2);
}

void TestBackendOperator::refusesBackupIntoItself_data()
{
    QTest::addColumn<QString>("target");
    QTest::newRow("below") << u"/backup"_s;
    QTest::newRow("far below") << u"/backups/of/today"_s;
    QTest::newRow("by its files") << u"/files/../backup"_s;
    QTest::newRow("by a link") << u"/../way-in/backup"_s;
}

void TestBackendOperator::refusesBackupIntoItself()
{
    QFETCH(QString, target);
    const QString link = m_backend->data() + "/../way-in"_L1;
    QFile::remove(link);
    QVERIFY(QFile::link(m_backend->data(), link));
    const auto run = m_backend->command({u"backup"_s, u"--to"_s, m_backend->data() + target});
    QFile::remove(link);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.endsWith(" lies in the data directory itself\n"), run.errors.constData());
    QVERIFY(!QFile::exists(m_backend->data() + target));
    // Beside it there is room.
    const QString beside = m_backend->data() + "-backup"_L1;
    QCOMPARE(m_backend->command({u"backup"_s, u"--to"_s, beside}).exitCode, 0);
    QVERIFY(QDir(beside).removeRecursively());
}

// A machine without a battery may start a century late, and be put right a minute later.
void TestBackendOperator::keepsSessionsWhenClockJumps()
{
    const Player player = enroll(u"Ada"_s);
    // The sweep that a start begins with ends with this file.
    const auto restart = [this] {
        QCOMPARE(m_backend->stop(), 0);
        QFile scratch(m_backend->data() + "/tmp/left-by-a-crash"_L1);
        QVERIFY(scratch.open(QIODevice::WriteOnly));
        QVERIFY(m_backend->start());
        QTRY_VERIFY(!scratch.exists());
    };
    const auto pass = [this](int days) {
        for (const QString& what :
             {u"sessions SET last_used = last_used"_s, u"clock SET seen = seen"_s})
            QVERIFY(
                m_backend->runSql(u"UPDATE %1 - %2"_s.arg(what).arg(qint64(days) * 24 * 60 * 60)));
    };
    restart();
    pass(36500);
    QCOMPARE(status("/auth/validate", player), 401);
    restart();
    restart();
    pass(-36500);
    QCOMPARE(status("/auth/validate", player), 200);
    // Whoever really was away for long is forgotten, by and by.
    pass(33);
    QVERIFY(m_backend->runSql(u"UPDATE clock SET seen = seen + %1"_s.arg(30 * 24 * 60 * 60)));
    for (int day = 0; day < 3; ++day)
        restart();
    pass(-33);
    QCOMPARE(status("/auth/validate", player), 401);
}

QTEST_GUILESS_MAIN(TestBackendOperator)
#include "tst_backend_operator.moc"
