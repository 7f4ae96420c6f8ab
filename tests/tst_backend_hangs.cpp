#include "tests/support/backend_process.h"
#include "tests/support/freezing_proxy.h"
#include "tests/support/raw_client.h"

#include <QElapsedTimer>
#include <QTest>
#include <QUrl>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

// PostgreSQL that keeps its connections open and says nothing any more.
class TestBackendHangs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void givesUpSilentDatabaseAtStart();
    void answersWhileDatabaseHangs_data();
    void answersWhileDatabaseHangs();
    void takesUpNewConnections();
    void survivesRestartOfDatabase_data();
    void survivesRestartOfDatabase();
    void passesParametersOn();

private:
    bool start();
    qint64 ask(const QByteArray& path, int& status);
    int statusOfManifest() const;

    std::unique_ptr<FreezingProxy> m_proxy;
    std::unique_ptr<BackendProcess> m_backend;
};

namespace {

QString through(const QString& database, const FreezingProxy& proxy)
{
    QUrl url(database);
    url.setPort(proxy.port());
    return url.toString();
}

QByteArray post(const QByteArray& path, const QByteArray& token, const QByteArray& body)
{
    return "POST " + path + " HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + token +
           "\r\nContent-Type: application/json\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

} // namespace

bool TestBackendHangs::start()
{
    m_backend = std::make_unique<BackendProcess>();
    const QString database = m_backend->databaseLocation();
    m_proxy = std::make_unique<FreezingProxy>(static_cast<quint16>(QUrl(database).port()));
    return m_backend->start({u"--database"_s, through(database, *m_proxy)});
}

// How many milliseconds that answer takes.
qint64 TestBackendHangs::ask(const QByteArray& path, int& status)
{
    QElapsedTimer timer;
    timer.start();
    const RawReply reply = raw_http::get(m_backend->port(), path);
    const bool saysWhen = reply.headers.contains("retry-after");
    status = saysWhen == (reply.status == 503) ? reply.status : -1;
    return timer.elapsed();
}

int TestBackendHangs::statusOfManifest() const
{
    return raw_http::get(m_backend->port(), "/manifest.json").status;
}

void TestBackendHangs::givesUpSilentDatabaseAtStart()
{
    FreezingProxy silent(1);
    silent.freeze(FreezingProxy::Frozen::Everything);
    const BackendProcess place;
    QElapsedTimer timer;
    timer.start();
    const auto run = BackendProcess::runProgram(
        {u"serve"_s, u"--data"_s, place.data(), u"--listen"_s, u"127.0.0.1:0"_s, u"--database"_s,
         u"postgresql://nobody@127.0.0.1:%1/none"_s.arg(silent.port())});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains("database: "), run.errors.constData());
    QVERIFY2(timer.elapsed() < 15'000, QByteArray::number(timer.elapsed()).constData());
}

void TestBackendHangs::answersWhileDatabaseHangs_data()
{
    QTest::addColumn<bool>("all");
    QTest::newRow("on the connections it has") << false;
    QTest::newRow("on new ones too") << true;
}

void TestBackendHangs::answersWhileDatabaseHangs()
{
    QFETCH(bool, all);
    if (!BackendProcess::isOnPostgres())
        QSKIP("SQLite has no connections");
    QVERIFY(start());
    QFile file(m_backend->data() + u"/build"_s);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("content") == 7);
    file.close();
    m_backend->command(
        {u"publish"_s, u"launcher"_s, u"--version"_s, u"2"_s, u"--file"_s, file.fileName()});
    const QString url = raw_http::get(m_backend->port(), "/manifest.json")
                            .json()[u"launcherLinux"_s][u"url"_s]
                            .toString();
    const QByteArray path = url.mid(m_backend->origin().size()).toLatin1();
    const QByteArray credentials = R"({"username":"Waiting","password":"correct horse"})";
    const QByteArray token =
        raw_http::post(m_backend->port(), "/auth/register", "application/json", credentials)
            .json()[u"token"_s]
            .toString()
            .toLatin1();
    // What these take when nothing hangs, on this machine now.
    int status = 0;
    qint64 control = 0;
    for (int i = 0; i < 10; ++i) {
        control = std::max({control, ask("/healthz", status), ask(path, status)});
        QCOMPARE(status, 200);
    }
    const qint64 limit = std::max<qint64>(100, 5 * control);

    m_proxy->freeze(all ? FreezingProxy::Frozen::Everything
                        : FreezingProxy::Frozen::ConnectionsOfNow);
    std::vector<std::unique_ptr<RawClient>> waiting;
    const auto send = [&](const QByteArray& request) {
        waiting.push_back(std::make_unique<RawClient>(m_backend->port()));
        waiting.back()->send(request);
    };
    for (int i = 0; i < 10; ++i)
        send("GET /manifest.json HTTP/1.1\r\nHost: x\r\n\r\n");
    send(post("/auth/login", {}, credentials));
    send(post("/models/upload", token, "{}"));
    send(post("/auth/register", {}, QByteArray(credentials).replace("Waiting", "Another")));
    QElapsedTimer timer;
    timer.start();
    // Looked at until it must have been noticed, and for a while longer.
    int health = 0;
    while (timer.elapsed() < 4000) {
        const qint64 healthTook = ask("/healthz", health);
        QVERIFY2(healthTook <= limit, QByteArray::number(healthTook).constData());
        const qint64 fileTook = ask(path, status);
        QVERIFY2(fileTook <= limit, QByteArray::number(fileTook).constData());
        QCOMPARE(status, 200);
        QVERIFY(health == 503 || timer.elapsed() < 3000);
        QTest::qWait(50);
    }
    QCOMPARE(health, 503);
    // Everybody has an answer by the time that the engine gives; those that find a connection
    // which was never used may even have what they want.
    for (const auto& one : waiting) {
        const QByteArray got =
            one->readUntil("}", 1, static_cast<int>(std::max<qint64>(1, 13'000 - timer.elapsed())));
        const bool isLater = got.startsWith("HTTP/1.1 503") && got.contains("\r\nRetry-After: ");
        QVERIFY2(isLater || (!all && got.startsWith("HTTP/1.1 2")) ||
                     (!all && got.startsWith("HTTP/1.1 422")),
                 got.constData());
    }
    if (all)
        m_proxy->freeze(FreezingProxy::Frozen::Nothing);
    QTRY_COMPARE_WITH_TIMEOUT(statusOfManifest(), 200, 20'000);
    QTRY_COMPARE_WITH_TIMEOUT((ask("/healthz", health), health), 200, 20'000);
}

// Every thread has been at the database, and every one of them comes back from what hangs.
void TestBackendHangs::takesUpNewConnections()
{
    if (!BackendProcess::isOnPostgres())
        QSKIP("SQLite has no connections");
    QVERIFY(start());
    const auto askAll = [this](QByteArrayList& statuses) {
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int i = 0; i < 60; ++i) {
            clients.push_back(std::make_unique<RawClient>(m_backend->port()));
            clients.back()->send("GET /manifest.json HTTP/1.1\r\nHost: x\r\n\r\n");
        }
        for (const auto& client : clients)
            statuses.append(client->readUntil("}", 1, 30'000).mid(9, 3));
    };
    QByteArrayList warm;
    askAll(warm);
    QCOMPARE(warm.count("200"), 60);
    m_proxy->freeze(FreezingProxy::Frozen::ConnectionsOfNow);
    QByteArrayList hanging;
    askAll(hanging);
    // One for each thread, which waits for as long as a statement may take; the others go on.
    QVERIFY2(hanging.count("503") >= 1 && hanging.count("503") <= 6 &&
                 hanging.count("200") + hanging.count("503") == 60,
             hanging.join(' ').constData());
    QByteArrayList after;
    askAll(after);
    QCOMPARE(after.count("200"), 60);
}

void TestBackendHangs::survivesRestartOfDatabase_data()
{
    QTest::addColumn<int>("milliseconds");
    QTest::newRow("over already") << 0;
    QTest::newRow("takes a second") << 1000;
}

void TestBackendHangs::survivesRestartOfDatabase()
{
    QFETCH(int, milliseconds);
    if (!BackendProcess::isOnPostgres())
        QSKIP("SQLite has no connections");
    QVERIFY(start());
    const QByteArray credentials = R"({"username":"Waiting","password":"correct horse"})";
    const auto ask = [credentials](int number) -> QByteArray {
        if (number == 0)
            return "GET /manifest.json HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";
        return post(number == 1 ? "/auth/login" : "/auth/register", {},
                    QByteArray(credentials)
                        .replace("Waiting", QByteArray("Name" + QByteArray::number(number))))
            .replace("Host: x", "Host: x\r\nConnection: close");
    };
    const auto answers = [&] {
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int i = 0; i < 12; ++i) {
            clients.push_back(std::make_unique<RawClient>(m_backend->port()));
            clients.back()->send(ask(i % 3));
        }
        if (milliseconds > 0) {
            QTest::qWait(milliseconds);
            m_proxy->freeze(FreezingProxy::Frozen::Nothing);
        }
        QList<int> counts(600, 0);
        for (const auto& client : clients)
            ++counts[client->readAll().mid(9, 3).toInt()];
        return counts;
    };
    // Every thread of the server has a connection.
    const QList<int> before = answers();
    QCOMPARE(before[200] + before[401] + before[409] + before[429], 12);
    m_proxy->freeze(FreezingProxy::Frozen::Gone);
    if (milliseconds == 0)
        m_proxy->freeze(FreezingProxy::Frozen::Nothing);
    const QList<int> after = answers();
    QCOMPARE(after[500], 0);
    QCOMPARE(after[503], 0);
    QCOMPARE(after[200] + after[401] + after[409] + after[429], 12);
}

// The address is libpq's as a whole: what it says must not get lost, least of all about TLS.
void TestBackendHangs::passesParametersOn()
{
    if (!BackendProcess::isOnPostgres())
        QSKIP("SQLite has no address");
    BackendProcess backend;
    const QString database = backend.databaseLocation();
    const auto open = [&](const QString& parameters) {
        return BackendProcess::runProgram({u"list"_s, u"--data"_s, backend.data(), u"--database"_s,
                                           QString(database + u'?' + parameters)});
    };
    QVERIFY(backend.start());
    QCOMPARE(open(u"application_name=it%27s%20a%20%5C%20name&connect_timeout=3"_s).exitCode, 0);
    // This PostgreSQL has no TLS.
    const auto refused = open(u"sslmode=require"_s);
    QCOMPARE(refused.exitCode, 1);
    QVERIFY2(refused.errors.contains("SSL"), refused.errors.constData());
    const auto unknown = open(u"sslmod=require"_s);
    QCOMPARE(unknown.exitCode, 1);
    QVERIFY2(unknown.errors.contains("sslmod"), unknown.errors.constData());
    QCOMPARE(open(u"application_name=a%3Bsslmode=disable"_s).exitCode, 1);
}

QTEST_GUILESS_MAIN(TestBackendHangs)
#include "tst_backend_hangs.moc"
