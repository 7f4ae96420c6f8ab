#include "backend/base/outcome.h"
#include "backend/data/data_directory.h"
#include "backend/upkeep/janitor.h"
#include "backend/upkeep/sweep.h"

#include "tests/support/backend_process.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QRegularExpression>
#include <QTest>

#include <atomic>
#include <new>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

// What an operator does beside publishing: withdraw, accounts, check.
class TestBackendUpkeep : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withdrawsWhatWasPublished();
    void refusesToWithdrawWhatIsNotThere_data();
    void refusesToWithdrawWhatIsNotThere();
    void listsAccounts();
    void disablesAccount();
    void resetsPassword();
    void readsPasswordFromStandardInput();
    void findsDamage_data();
    void findsDamage();
    void sweepsReplacedFiles();
    void keepsWhatIsReferredTo();
    void sweepsWhatCountsNoMore();
    void goesOnAfterWhateverIsThrown();
    void refusesDirectoryWithoutData_data();
    void refusesDirectoryWithoutData();
    void refusesRootInDirectoryOfAnother();
    void drawsProgressOnTerminalOnly();
};

namespace {

const QString password = u"correct horse"_s;

RawReply enroll(const BackendProcess& backend, const QString& name)
{
    return raw_http::postJson(backend.port(), "/auth/register",
                              {{u"username"_s, name}, {u"password"_s, password}});
}

int loginStatus(const BackendProcess& backend, const QString& name, const QString& with = password)
{
    return raw_http::postJson(backend.port(), "/auth/login",
                              {{u"username"_s, name}, {u"password"_s, with}})
        .status;
}

QByteArray tokenOf(const RawReply& reply)
{
    return reply.json()[u"token"_s].toString().toLatin1();
}

int validateStatus(const BackendProcess& backend, const QByteArray& token)
{
    return raw_http::get(backend.port(), "/auth/validate", {raw_http::bearer(token)}).status;
}

bool publishLauncher(const BackendProcess& backend, const QByteArray& content)
{
    QFile file(backend.data() + u"/launcher-build"_s);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(content);
    file.close();
    return backend
               .command({u"publish"_s, u"launcher"_s, u"--version"_s, u"9"_s, u"--file"_s,
                         file.fileName()})
               .exitCode == 0;
}

QStringList storedFiles(const BackendProcess& backend)
{
    QStringList found;
    QDirIterator files(backend.data() + u"/files"_s, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext())
        found.append(files.next());
    return found;
}

} // namespace

void TestBackendUpkeep::withdrawsWhatWasPublished()
{
    BackendProcess backend;
    QVERIFY2(backend.start(), backend.output().constData());
    QVERIFY(publishLauncher(backend, "a build"));
    for (const QString& title : {u"First"_s, u"Second"_s})
        QCOMPARE(backend.command({u"publish"_s, u"news"_s, u"--title"_s, title}).exitCode, 0);
    const auto manifest = [&backend] {
        return raw_http::get(backend.port(), "/manifest.json").json();
    };
    QVERIFY(manifest().contains(u"launcherLinux"_s));

    const QByteArray list = backend.command({u"list"_s}).output;
    const auto line = QRegularExpression(u"news (\\d+) +First"_s).match(QString::fromUtf8(list));
    QVERIFY2(line.hasMatch(), list.constData());
    QVERIFY2(list.contains("launcher linux"), list.constData());
    QCOMPARE(backend.command({u"withdraw"_s, u"news"_s, line.captured(1)}).exitCode, 0);
    QCOMPARE(manifest()[u"news"_s].toArray().size(), 1);
    QCOMPARE(manifest()[u"news"_s][0][u"title"_s].toString(), u"Second"_s);
    QCOMPARE(backend.command({u"withdraw"_s, u"launcher"_s, u"linux"_s}).exitCode, 0);
    QVERIFY(!manifest().contains(u"launcherLinux"_s));
}

void TestBackendUpkeep::refusesToWithdrawWhatIsNotThere_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("version") << QStringList{u"version"_s, u"7"_s} << 1;
    QTest::newRow("news") << QStringList{u"news"_s, u"7"_s} << 1;
    QTest::newRow("news without a number") << QStringList{u"news"_s, u"Title"_s} << 1;
    QTest::newRow("launcher") << QStringList{u"launcher"_s, u"linux"_s} << 1;
    QTest::newRow("runtime") << QStringList{u"runtime"_s} << 1;
    QTest::newRow("version without id") << QStringList{u"version"_s} << 2;
    QTest::newRow("something else") << QStringList{u"everything"_s} << 2;
}

void TestBackendUpkeep::refusesToWithdrawWhatIsNotThere()
{
    QFETCH(QStringList, words);
    QFETCH(int, exitCode);
    const BackendProcess backend;
    const auto run = backend.command(QStringList{u"withdraw"_s} + words);
    QCOMPARE(run.exitCode, exitCode);
    QVERIFY(run.errors.startsWith("error: "));
}

void TestBackendUpkeep::listsAccounts()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    const QString uuid = enroll(backend, u"Zoe"_s).json()[u"uuid"_s].toString();
    QCOMPARE(enroll(backend, u"adam"_s).status, 200);
    const auto run = backend.command({u"accounts"_s, u"list"_s});
    QCOMPARE(run.exitCode, 0);
    const QList<QByteArray> lines = run.output.trimmed().split('\n');
    QCOMPARE(lines.size(), 2);
    QVERIFY(lines[0].startsWith("adam "));
    QVERIFY(lines[1].startsWith("Zoe "));
    QVERIFY(lines[1].contains(uuid.toLatin1()));
    QVERIFY(lines[1].contains("1 sessions"));
    QCOMPARE(backend.command({u"accounts"_s, u"list"_s, u"--match"_s, u"AD"_s})
                 .output.trimmed()
                 .split('\n')
                 .size(),
             1);
}

void TestBackendUpkeep::disablesAccount()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    const QByteArray token = tokenOf(enroll(backend, u"Rowdy"_s));
    QCOMPARE(backend.command({u"accounts"_s, u"disable"_s, u"rowdy"_s}).exitCode, 0);
    QCOMPARE(validateStatus(backend, token), 401);
    QVERIFY(backend.command({u"accounts"_s, u"list"_s}).output.contains("0 sessions  disabled"));
    const RawReply refused = raw_http::postJson(
        backend.port(), "/auth/login", {{u"username"_s, u"Rowdy"_s}, {u"password"_s, password}});
    QCOMPARE(refused.status, 403);
    QCOMPARE(refused.error(), u"This account is disabled."_s);
    // Who does not know the password does not learn it.
    QCOMPARE(loginStatus(backend, u"Rowdy"_s, u"wrong password"_s), 401);
    QCOMPARE(backend.command({u"accounts"_s, u"enable"_s, u"Rowdy"_s}).exitCode, 0);
    QCOMPARE(loginStatus(backend, u"Rowdy"_s), 200);
    QCOMPARE(backend.command({u"accounts"_s, u"disable"_s, u"Nobody"_s}).exitCode, 1);
    // A login that was under way at that moment may still have made a session: it is worth nothing.
    const QByteArray late = tokenOf(enroll(backend, u"Late"_s));
    QVERIFY(backend.runSql(u"UPDATE accounts SET disabled = 1 WHERE name = 'Late'"_s));
    QCOMPARE(validateStatus(backend, late), 401);
}

void TestBackendUpkeep::resetsPassword()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    const QByteArray token = tokenOf(enroll(backend, u"Forgetful"_s));
    const auto run = backend.command({u"accounts"_s, u"reset-password"_s, u"Forgetful"_s});
    QCOMPARE(run.exitCode, 0);
    const QString fresh = QString::fromUtf8(run.output).trimmed().section(u' ', -1);
    QCOMPARE(fresh.size(), 16);
    QCOMPARE(loginStatus(backend, u"Forgetful"_s), 401);
    QCOMPARE(loginStatus(backend, u"Forgetful"_s, fresh), 200);
    QCOMPARE(validateStatus(backend, token), 401);
}

void TestBackendUpkeep::readsPasswordFromStandardInput()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    QCOMPARE(enroll(backend, u"Forgetful"_s).status, 200);
    const QStringList words{u"accounts"_s, u"reset-password"_s, u"Forgetful"_s, u"--stdin"_s};
    const auto run = backend.command(words, "a brand new one\n");
    QCOMPARE(run.exitCode, 0);
    QVERIFY(!run.output.contains("brand"));
    QCOMPARE(loginStatus(backend, u"Forgetful"_s, u"a brand new one"_s), 200);
    const auto tooShort = backend.command(words, "short\n");
    QCOMPARE(tooShort.exitCode, 1);
    QVERIFY(tooShort.errors.contains("A password has 8 to 128 characters."));
    QCOMPARE(loginStatus(backend, u"Forgetful"_s, u"a brand new one"_s), 200);
}

void TestBackendUpkeep::findsDamage_data()
{
    QTest::addColumn<QString>("damage");
    QTest::newRow("one byte changed") << u"change"_s;
    QTest::newRow("cut short") << u"cut"_s;
    QTest::newRow("missing") << u"remove"_s;
}

void TestBackendUpkeep::findsDamage()
{
    QFETCH(QString, damage);
    BackendProcess backend;
    QVERIFY(publishLauncher(backend, "a build of some bytes"));
    const auto healthy = backend.command({u"check"_s});
    QCOMPARE(healthy.exitCode, 0);
    QVERIFY2(healthy.output.contains("All is well: 1 files"), healthy.output.constData());

    QFile file(storedFiles(backend).constFirst());
    if (damage == "remove"_L1) {
        QVERIFY(file.remove());
    } else if (damage == "cut"_L1) {
        QVERIFY(file.resize(5));
    } else {
        QVERIFY(file.open(QIODevice::ReadWrite));
        file.seek(3);
        file.write("X");
    }
    file.close();
    const auto run = backend.command({u"check"_s});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.output.contains(QByteArray("damaged: " + file.fileName().toUtf8())),
             run.output.constData());
    // Publishing it again mends it.
    QVERIFY(publishLauncher(backend, "a build of some bytes"));
    QCOMPARE(backend.command({u"check"_s}).exitCode, 0);
}

void TestBackendUpkeep::sweepsReplacedFiles()
{
    BackendProcess backend;
    QVERIFY(publishLauncher(backend, "older"));
    QVERIFY(publishLauncher(backend, "newer"));
    QCOMPARE(storedFiles(backend).size(), 2);
    QFile leftOver(backend.data() + u"/tmp/left-by-a-crash"_s);
    QVERIFY(leftOver.open(QIODevice::WriteOnly));
    QVERIFY(backend.start());
    QTRY_COMPARE(storedFiles(backend).size(), 1);
    QTRY_VERIFY(!leftOver.exists());
    const QString url = raw_http::get(backend.port(), "/manifest.json")
                            .json()[u"launcherLinux"_s][u"url"_s]
                            .toString();
    QCOMPARE(raw_http::get(backend.port(), url.mid(backend.origin().size()).toLatin1()).body,
             "newer");
}

// A skin, a model and a build each lie there for one reason alone.
void TestBackendUpkeep::keepsWhatIsReferredTo()
{
    BackendProcess backend;
    QVERIFY(publishLauncher(backend, "older"));
    QVERIFY(backend.start());
    for (const QString& name : {u"Skinny"_s, u"Model"_s}) {
        const QByteArray model = R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[1,1,1]}],")" +
                                 name.toLatin1() + R"(":1})";
        const RawReply reply =
            raw_http::post(backend.port(), "/models/upload", "application/json", model,
                           {raw_http::bearer(tokenOf(enroll(backend, name)))});
        QCOMPARE(reply.status, 200);
    }
    QVERIFY(
        backend.runSql(u"UPDATE accounts SET skin = model, model = NULL WHERE name = 'Skinny'"_s));
    QCOMPARE(backend.stop(), 0);
    // The older build goes, and nothing else.
    QVERIFY(publishLauncher(backend, "newer"));
    QCOMPARE(storedFiles(backend).size(), 4);
    QVERIFY(backend.start());
    QTRY_COMPARE(storedFiles(backend).size(), 3);
    QCOMPARE(backend.stop(), 0);
    const auto run = backend.command({u"check"_s});
    QVERIFY2(run.output.contains("All is well: 3 files, 0 unused"), run.output.constData());
    QVERIFY2(!backend.output().contains("error"), backend.output().constData());
}

void TestBackendUpkeep::sweepsWhatCountsNoMore()
{
    const BackendProcess place;
    DataDirectory data(
        {place.data(), BackendProcess::isOnPostgres() ? place.databaseLocation() : QString()});
    Database& database = data.database();
    database.run(u"INSERT INTO accounts (uuid, name, name_key, password_hash, created)"
                 " VALUES ('u', 'Name', 'name', '', 0)"_s);
    constexpr qint64 day = 24LL * 60 * 60;
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    for (const qint64 ago : {day + 1, day - 60, -day + 60, -day - 60})
        database.run(u"INSERT INTO spendings (account, what, spent_at, amount)"
                     " VALUES ('u', 'uploads', ?, 1)"_s,
                     {now - ago});
    for (const qint64 ago : {30 * day + 1, 30 * day - 60, -1000 * day})
        database.run(u"INSERT INTO former_names (name_key, account, since) VALUES (?, 'u', ?)"_s,
                     {QString::number(ago), now - ago});
    sweep::run(database, data.store());
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM spendings"_s).toInt(), 2);
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM former_names"_s).toInt(), 2);
    // They go with their account.
    database.run(u"DELETE FROM accounts"_s);
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM spendings"_s).toInt(), 0);
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM former_names"_s).toInt(), 0);
}

void TestBackendUpkeep::goesOnAfterWhateverIsThrown()
{
    std::atomic<int> turns = 0;
    const Janitor janitor(
        [&turns] {
            switch (++turns) {
            case 1:
                throw std::bad_alloc();
            case 2:
                throw std::runtime_error("no");
            case 3:
                throw Busy(u"in a moment"_s);
            }
        },
        1ms);
    QTRY_VERIFY(turns > 3);
}

void TestBackendUpkeep::refusesDirectoryWithoutData_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::newRow("list") << QStringList{u"list"_s};
    QTest::newRow("withdraw") << QStringList{u"withdraw"_s, u"runtime"_s};
    QTest::newRow("accounts list") << QStringList{u"accounts"_s, u"list"_s};
    QTest::newRow("check") << QStringList{u"check"_s};
    QTest::newRow("backup") << QStringList{u"backup"_s, u"--to"_s, u"/nowhere/copy"_s};
}

// A mistyped name must not come out as an empty directory in which all is well.
void TestBackendUpkeep::refusesDirectoryWithoutData()
{
    QFETCH(QStringList, words);
    const QTemporaryDir parent;
    const QString missing = parent.filePath(u"mistyped"_s);
    const auto run = BackendProcess::runProgram(words + QStringList{u"--data"_s, missing});
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.errors, QByteArray("error: " + missing.toUtf8() + " is no data directory\n"));
    QVERIFY(!QDir(missing).exists());
}

// What root wrote, the server's own account could not read.
void TestBackendUpkeep::refusesRootInDirectoryOfAnother()
{
    if (::geteuid() != 0)
        QSKIP("needs root");
    const BackendProcess backend;
    QVERIFY(publishLauncher(backend, "a build"));
    constexpr uid_t nobody = 65534;
    QCOMPARE(::chown(QFile::encodeName(backend.data()).constData(), nobody, nobody), 0);
    const auto run = backend.command({u"check"_s});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains("belongs to nobody: run this as that user"),
             run.errors.constData());
    QCOMPARE(::chown(QFile::encodeName(backend.data()).constData(), 0, 0), 0);
    QCOMPARE(backend.command({u"check"_s}).exitCode, 0);
}

void TestBackendUpkeep::drawsProgressOnTerminalOnly()
{
    const BackendProcess backend;
    QVERIFY(publishLauncher(backend, "a build"));
    const auto piped = backend.command({u"check"_s});
    QCOMPARE(piped.errors, QByteArray());
    QVERIFY2(!piped.output.contains('\r') && !piped.output.contains('['), piped.output.constData());

    // script(1) gives it a terminal.
    QProcess terminal;
    QStringList words{BackendProcess::program(), u"check"_s};
    words += backend.location();
    terminal.start(u"script"_s,
                   {u"-qec"_s, QString(u'\'' + words.join(u"' '"_s) + u'\''), u"/dev/null"_s});
    QVERIFY(terminal.waitForFinished());
    const QByteArray shown = terminal.readAll();
    QVERIFY2(shown.contains("Checking [########################################] 100 %"),
             shown.constData());
    // The bar makes room for the result.
    QVERIFY2(shown.contains("\r\x1b[KAll is well"), shown.constData());
}

QTEST_GUILESS_MAIN(TestBackendUpkeep)
#include "tst_backend_upkeep.moc"
