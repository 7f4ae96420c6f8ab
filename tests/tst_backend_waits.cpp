#include "tests/support/backend_process.h"
#include "tests/support/raw_client.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <fcntl.h>
#include <memory>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

// What the server does when something inside does not answer, and what it lets strangers hold.
class TestBackendWaits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void answersFilesWhileOthersWait_data();
    void answersFilesWhileOthersWait();
    void stopsInTimeWhateverHangs();
    void boundsBodiesOfAccount();
    void boundsBodiesOfProcess();
    void boundsConnectionsOfAddress();
    void sparesTrustedProxy();
    void dropsReaderOfNothing();
    void outlivesDescriptors();
    void saysNothingOfUnreadableFile();

private:
    QByteArray enroll(const QString& name);
    QByteArray publishFile(const QByteArray& content);

    std::unique_ptr<BackendProcess> m_backend;
};

namespace {

constexpr auto health = "GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n";

using Clients = std::vector<std::unique_ptr<RawClient>>;

QByteArray upload(const QByteArray& token, qsizetype bytes)
{
    return "POST /models/upload HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
           "Authorization: Bearer " +
           token + "\r\nExpect: 100-continue\r\nContent-Length: " + QByteArray::number(bytes) +
           "\r\n\r\n";
}

QByteArray register_(int number)
{
    const QByteArray body =
        R"({"username":"Waiting)" + QByteArray::number(number) + R"(","password":"correct horse"})";
    return "POST /auth/register HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
           "Content-Length: " +
           QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

// A small model that is one: what is uploaded while the store is locked.
QByteArray model()
{
    return R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[1,1,1]}],"outliner":[]})";
}

// Keeps SQLite's write lock while it lives.
class WriteLock
{
public:
    explicit WriteLock(const QString& file)
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"holder"_s);
        database.setDatabaseName(file);
        isHeld = database.open() && QSqlQuery(database).exec(u"BEGIN IMMEDIATE"_s);
    }
    ~WriteLock()
    {
        QSqlDatabase::database(u"holder"_s).close();
        QSqlDatabase::removeDatabase(u"holder"_s);
    }
    Q_DISABLE_COPY_MOVE(WriteLock)
    bool isHeld = false;
};

class FileLock
{
public:
    FileLock(const QString& file, int how)
        : m_handle(::open(QFile::encodeName(file).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0660))
    {
        isHeld = ::flock(m_handle, how) == 0;
    }
    ~FileLock() { ::close(m_handle); }
    Q_DISABLE_COPY_MOVE(FileLock)
    bool isHeld = false;

private:
    int m_handle;
};

QString lockOf(const BackendProcess& backend)
{
    return backend.data() + u"/store.lock"_s;
}

// Asks again until it is so; once more, as QTRY_VERIFY does, would be one client too many.
template <typename Question>
bool eventually(const Question& question)
{
    for (int i = 0; i < 100; ++i) {
        if (question())
            return true;
        QTest::qWait(50);
    }
    return false;
}

// Processor time in milliseconds.
qint64 processorTime(pid_t pid)
{
    QFile file(u"/proc/%1/stat"_s.arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    // Behind the name, which may hold blanks.
    const QByteArray stat = file.readAll();
    const QByteArrayList fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    return (fields[11].toLongLong() + fields[12].toLongLong()) * 1000 / sysconf(_SC_CLK_TCK);
}

rlim_t descriptorsOf(pid_t pid)
{
    const QDir::Filters all = QDir::NoDotAndDotDot | QDir::System | QDir::AllEntries;
    return static_cast<rlim_t>(QDir(u"/proc/%1/fd"_s.arg(pid)).entryList(all).size());
}

} // namespace

void TestBackendWaits::init()
{
    m_backend = std::make_unique<BackendProcess>();
}

void TestBackendWaits::cleanup()
{
    m_backend.reset();
}

QByteArray TestBackendWaits::enroll(const QString& name)
{
    return raw_http::postJson(m_backend->port(), "/auth/register",
                              {{u"username"_s, name}, {u"password"_s, u"correct horse"_s}})
        .json()[u"token"_s]
        .toString()
        .toLatin1();
}

// The path below which it can be fetched.
QByteArray TestBackendWaits::publishFile(const QByteArray& content)
{
    QFile file(m_backend->data() + u"/build"_s);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return {};
    file.close();
    m_backend->command(
        {u"publish"_s, u"launcher"_s, u"--version"_s, u"2"_s, u"--file"_s, file.fileName()});
    const QString url = raw_http::get(m_backend->port(), "/manifest.json")
                            .json()[u"launcherLinux"_s][u"url"_s]
                            .toString();
    return url.mid(m_backend->origin().size()).toLatin1();
}

void TestBackendWaits::answersFilesWhileOthersWait_data()
{
    QTest::addColumn<QString>("held");
    QTest::newRow("for SQLite's write lock") << u"database"_s;
    QTest::newRow("for the store's lock") << u"store"_s;
    QTest::newRow("for hashes") << u"nothing"_s;
}

void TestBackendWaits::answersFilesWhileOthersWait()
{
    QFETCH(QString, held);
    if (BackendProcess::isOnPostgres() && held == u"database"_s)
        QSKIP("SQLite alone has one lock for everybody");
    QVERIFY(m_backend->start({u"--max-address-registrations"_s, u"0"_s}));
    const quint16 port = m_backend->port();
    const QByteArray path = publishFile("content");
    const QByteArray token = enroll(u"Uploader"_s);
    QVERIFY(!path.isEmpty() && !token.isEmpty());
    qint64 longest = 0;
    const auto ask = [&](const QByteArray& request) {
        QElapsedTimer timer;
        timer.start();
        const int status = raw_http::send(port, request).status;
        longest = std::max(longest, timer.elapsed());
        return status;
    };
    const auto askForBoth = [&] {
        return ask(health) == 200 && ask("GET " + path + " HTTP/1.1\r\nHost: x\r\n\r\n") == 200;
    };
    // What they take while nothing hangs, on this machine now.
    for (int i = 0; i < 20; ++i)
        QVERIFY(askForBoth());
    // A tenth of a second of a machine's own; two hashes take two cores, and other tests run
    // beside.
    const qint64 limit = std::max<qint64>(250, 5 * std::exchange(longest, 0));

    std::unique_ptr<WriteLock> database;
    std::unique_ptr<FileLock> store;
    if (held == u"database"_s) {
        database = std::make_unique<WriteLock>(m_backend->databaseLocation());
        QVERIFY(database->isHeld);
    } else if (held == u"store"_s) {
        store = std::make_unique<FileLock>(lockOf(*m_backend), LOCK_EX);
        QVERIFY(store->isHeld);
    }
    Clients waiting;
    for (int i = 0; i < 40; ++i) {
        waiting.push_back(std::make_unique<RawClient>(port));
        if (held == u"store"_s)
            waiting.back()->send(upload(token, model().size()).replace("Expect", "X") + model());
        else
            waiting.back()->send(register_(i));
    }
    for (int i = 0; i < 20; ++i)
        QVERIFY(askForBoth());
    QVERIFY2(longest <= limit, QByteArray::number(longest).constData());
    // Nobody waits for ever, and everybody is told when to come again.
    for (const auto& one : waiting) {
        const QByteArray got = one->readUntil("}", 1, 20000);
        const bool isBusy = got.startsWith("HTTP/1.1 503") && got.contains("\r\nRetry-After: ");
        QVERIFY2(isBusy || (held == u"nothing"_s && got.startsWith("HTTP/1.1 200")),
                 got.constData());
    }
}

void TestBackendWaits::stopsInTimeWhateverHangs()
{
    QVERIFY(m_backend->start());
    QCOMPARE(m_backend->stop(), 0);
    // The sweep that every start begins with waits for this lock without end.
    const FileLock lock(lockOf(*m_backend), LOCK_EX);
    QVERIFY(m_backend->start());
    const QByteArray token = enroll(u"Stuck"_s);
    Clients waiting;
    for (int i = 0; i < 20; ++i) {
        waiting.push_back(std::make_unique<RawClient>(m_backend->port()));
        waiting.back()->send(upload(token, model().size()).replace("Expect", "X") + model());
    }
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(m_backend->stop(), 0);
    QVERIFY2(timer.elapsed() < 13'000, QByteArray::number(timer.elapsed()).constData());
}

void TestBackendWaits::boundsBodiesOfAccount()
{
    QVERIFY(m_backend->start({u"--max-account-body-memory"_s, u"2"_s}));
    const QByteArray greedy = enroll(u"Greedy"_s);
    const QByteArray other = enroll(u"Other"_s);
    constexpr qsizetype size = 1'500'000;
    const auto begin = [this](const QByteArray& token) {
        auto client = std::make_unique<RawClient>(m_backend->port());
        client->send(upload(token, size));
        const QByteArray got = client->readUntil("\r\n\r\n");
        return std::pair(std::move(client), got);
    };
    auto [first, leave] = begin(greedy);
    QVERIFY2(leave.startsWith("HTTP/1.1 100"), leave.constData());
    const auto [second, refusal] = begin(greedy);
    QVERIFY2(refusal.startsWith("HTTP/1.1 503"), refusal.constData());
    QVERIFY(refusal.contains("\r\nRetry-After: 1\r\n"));
    QVERIFY(begin(other).second.startsWith("HTTP/1.1 100"));
    // What is over counts no more, whatever came of it.
    first->send(QByteArray(size, ' '));
    QVERIFY(first->readUntil("}").startsWith("HTTP/1.1 422"));
    const auto mayBegin = [&] { return begin(greedy).second.startsWith("HTTP/1.1 100"); };
    QVERIFY(eventually(mayBegin));
    // That one has gone without its body.
    QVERIFY(eventually(mayBegin));
}

void TestBackendWaits::boundsBodiesOfProcess()
{
    QVERIFY(m_backend->start({u"--max-body-memory"_s, u"3"_s}));
    Clients clients;
    QByteArrayList answers;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(std::make_unique<RawClient>(m_backend->port()));
        clients.back()->send(upload(enroll(u"Many%1"_s.arg(i)), 1'400'000));
        answers.append(clients.back()->readUntil("\r\n\r\n").mid(9, 3));
    }
    QCOMPARE(answers, (QByteArrayList{"100", "100", "503"}));
    // Small ones still find room.
    QVERIFY(!enroll(u"Small"_s).isEmpty());
}

void TestBackendWaits::boundsConnectionsOfAddress()
{
    QVERIFY(m_backend->start({u"--max-address-connections"_s, u"5"_s}));
    const quint16 port = m_backend->port();
    const auto isAnswered = [](const RawClient& client) {
        client.send(health);
        return client.readUntil("ok", 1, 5000).startsWith("HTTP/1.1 200");
    };
    Clients clients;
    for (int i = 0; i < 5; ++i) {
        clients.push_back(std::make_unique<RawClient>(port));
        QVERIFY(isAnswered(*clients.back()));
    }
    QVERIFY(!isAnswered(RawClient(port)));
    QVERIFY(isAnswered(RawClient(port, "127.0.0.2")));
    clients.pop_back();
    QVERIFY(eventually([&] { return isAnswered(RawClient(port)); }));
    QVERIFY(isAnswered(*clients.front()));
}

void TestBackendWaits::sparesTrustedProxy()
{
    QVERIFY(m_backend->start(
        {u"--max-address-connections"_s, u"2"_s, u"--trusted-proxy"_s, u"127.0.0.1"_s}));
    Clients clients;
    for (int i = 0; i < 10; ++i) {
        clients.push_back(std::make_unique<RawClient>(m_backend->port()));
        clients.back()->send(health);
        QVERIFY(clients.back()->readUntil("ok").startsWith("HTTP/1.1 200"));
    }
}

void TestBackendWaits::dropsReaderOfNothing()
{
    QVERIFY(m_backend->start({u"--stall-seconds"_s, u"2"_s}));
    const QByteArray path = publishFile(QByteArray(40 * 1024 * 1024, 'x'));
    const RawClient client(m_backend->port());
    client.send("GET " + path + " HTTP/1.1\r\nHost: x\r\n\r\n");
    // Nothing is left of it, neither here nor in the kernel.
    QVERIFY(client.waitForReset(10'000));
    // One that reads is left alone, however long it takes.
    const RawClient slow(m_backend->port());
    slow.send("GET " + path + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    QByteArray got;
    for (int i = 0; i < 15; ++i)
        got += slow.readUntil("x", 1, 1000) + (QTest::qWait(200), QByteArray());
    got += slow.readAll(20000);
    QVERIFY(got.startsWith("HTTP/1.1 200"));
    QCOMPARE(got.size() - got.indexOf("\r\n\r\n") - 4, 40 * 1024 * 1024);
}

void TestBackendWaits::outlivesDescriptors()
{
    QVERIFY(m_backend->start({u"--max-address-connections"_s, u"1000"_s}));
    const quint16 port = m_backend->port();
    const QByteArray path = publishFile("content");
    const auto pid = static_cast<pid_t>(m_backend->processId());
    const RawClient held(port);
    const auto statusOf = [&held](const QByteArray& request) {
        held.send(request);
        return held.readUntil("}").mid(9, 3);
    };
    QCOMPARE(statusOf(health), "200");
    const rlimit few{descriptorsOf(pid) + 10, 4096};
    QCOMPARE(prlimit(pid, RLIMIT_NOFILE, &few, nullptr), 0);
    Clients clients;
    for (int i = 0; i < 40; ++i)
        clients.push_back(std::make_unique<RawClient>(port));
    QTRY_VERIFY(m_backend->output().contains("cannot accept connections"));

    // Who is in is answered: from the database, and where a file is wanted, without it.
    const qint64 before = processorTime(pid);
    for (int i = 0; i < 20; ++i) {
        QCOMPARE(statusOf(health), "200");
        QCOMPARE(statusOf("GET " + path + " HTTP/1.1\r\nHost: x\r\n\r\n"), "500");
        QTest::qWait(100);
    }
    const qint64 spent = processorTime(pid) - before;
    QVERIFY2(spent < 500, QByteArray::number(spent).constData());
    QCOMPARE(m_backend->output().count("cannot accept connections"), 1);

    // When there is room again, everybody is answered, the waiting ones included.
    clients.erase(clients.begin(), clients.begin() + 35);
    QTRY_COMPARE(raw_http::send(port, health).status, 200);
    QCOMPARE(raw_http::get(port, path).body, "content");
    for (const auto& one : clients) {
        one->send(health);
        QVERIFY(one->readUntil("}").startsWith("HTTP/1.1 200"));
    }
    QCOMPARE(m_backend->stop(), 0);
}

void TestBackendWaits::saysNothingOfUnreadableFile()
{
    QVERIFY(m_backend->start());
    const QByteArray path = publishFile("content");
    const QString file = m_backend->data() + QString::fromLatin1(path);
    QVERIFY(QFile::remove(file) && QDir().mkpath(file));
    const RawReply reply = raw_http::get(m_backend->port(), path);
    QVERIFY2(reply.status == 500, reply.whole.constData());
    QVERIFY(!reply.error().isEmpty());
    QCOMPARE(reply.headers.value("cache-control"), "no-store");
    QVERIFY(!reply.whole.contains(m_backend->data().toLatin1()));
    QTRY_VERIFY(m_backend->output().contains(path));
    QCOMPARE(raw_http::send(m_backend->port(), health).status, 200);
}

QTEST_GUILESS_MAIN(TestBackendWaits)
#include "tst_backend_waits.moc"
