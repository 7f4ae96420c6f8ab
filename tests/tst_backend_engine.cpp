#include "backend/api/lane.h"
#include "backend/base/outcome.h"
#include "backend/http/engine.h"

#include "tests/support/raw_client.h"

#include <QTest>

#include <new>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

// Running out of memory is what is tested here; elsewhere it is a fault that ends the test.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

// The engine with an application that does the worst: it throws, runs out of memory, never answers.
class TestBackendEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void survivesApplication_data();
    void survivesApplication();
    void refusesBodyWithoutReadingIt();
    void judgesTransfersByProgress();
    void endsWhatHasBegun();
    void dropsWorkThatNobodyWaitsFor();
    void servesManyAtOnce();

private:
    class Application;
    void start(const server::Options& options);
    QByteArray ask(const QByteArray& path, const QByteArray& fields = {});

    std::unique_ptr<server::Engine> m_engine;
    std::unique_ptr<Application> m_application;
    std::thread m_thread;
    quint16 m_port = 0;
};

class TestBackendEngine::Application : public server::Application
{
public:
    void judge(const server::RequestPtr& request, const server::AnswerPtr& answer) override
    {
        if (request->path == "/judge/memory")
            throw std::bad_alloc();
        if (request->path == "/refused")
            return answer->give(server::failure(413));
        if (request->path == "/huge")
            request->bodyBytes = std::numeric_limits<qint64>::max() / 2;
        answer->give({});
    }
    void answer(const server::RequestPtr& request, const server::AnswerPtr& answer) override
    {
        if (request->path == "/answer/memory")
            throw std::bad_alloc();
        if (request->path == "/nothing")
            return;
        if (request->path == "/echo")
            return answer->give(server::Reply{.body = request->field("X-Number")});
        if (request->path == "/no reply")
            return answer->give({});
        lane.run(answer, [this, request, answer] {
            ++done;
            if (request->path == "/lane/memory")
                throw std::bad_alloc();
            if (request->path == "/lane/fault")
                throw std::runtime_error("/secret/place");
            if (request->path == "/lane/busy")
                throw Busy(u"/secret/place"_s);
            if (request->path == "/lane/sleep")
                std::this_thread::sleep_for(1500ms);
            answer->give(
                server::Reply{.body = "body of " + QByteArray::number(request->body.size())});
        });
    }
    std::atomic<int> done = 0;
    Lane lane{1, 5};
};

void TestBackendEngine::start(const server::Options& options)
{
    m_engine = server::Engine::make(options);
    m_port = static_cast<quint16>(m_engine->port());
    m_thread = std::thread([this] { m_engine->run(*m_application); });
}

void TestBackendEngine::init()
{
    m_application = std::make_unique<Application>();
}

void TestBackendEngine::cleanup()
{
    m_engine->stop();
    m_thread.join();
    m_application.reset();
    m_engine.reset();
}

QByteArray TestBackendEngine::ask(const QByteArray& path, const QByteArray& fields)
{
    const RawClient client(m_port);
    client.send("GET " + path + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" + fields + "\r\n");
    return client.readAll();
}

void TestBackendEngine::survivesApplication_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<int>("status");
    const auto row = [](const char* path, int status) {
        QTest::newRow(path) << QByteArray(path) << status;
    };
    row("/judge/memory", 503);
    row("/answer/memory", 503);
    row("/lane/memory", 503);
    row("/huge", 503);
    row("/lane/busy", 503);
    row("/lane/fault", 500);
    row("/nothing", 503);
    row("/no%20reply", 500);
}

void TestBackendEngine::survivesApplication()
{
    QFETCH(QByteArray, path);
    QFETCH(int, status);
    start({.host = u"127.0.0.1"_s, .application = 300ms});
    // Another client, whose connection must not suffer from it.
    const RawClient other(m_port);
    other.send("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(other.readUntil("body of 0").startsWith("HTTP/1.1 200"));
    const QByteArray got = ask(path);
    QVERIFY2(got.startsWith(QByteArray("HTTP/1.1 " + QByteArray::number(status))), got.constData());
    QVERIFY(got.contains("\r\n\r\n{\"error\":"));
    QCOMPARE(got.contains("\r\nRetry-After: "), status == 503);
    QVERIFY(!got.contains("secret"));
    other.send("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(other.readUntil("body of 0").startsWith("HTTP/1.1 200"));
}

void TestBackendEngine::refusesBodyWithoutReadingIt()
{
    start({.host = u"127.0.0.1"_s});
    const RawClient client(m_port);
    client.send("POST /refused HTTP/1.1\r\nHost: x\r\nContent-Length: 1000000\r\n\r\nbegin");
    const QByteArray got = client.readAll();
    QVERIFY(got.startsWith("HTTP/1.1 413"));
    QVERIFY(got.contains("Connection: close"));
}

void TestBackendEngine::judgesTransfersByProgress()
{
    start({.host = u"127.0.0.1"_s, .body = 1s});
    const QByteArray head = "POST /taken HTTP/1.1\r\nHost: x\r\nContent-Length: 400000\r\n\r\n";
    // Six blocks, each in time: longer in all than a block may take.
    const RawClient slow(m_port);
    slow.send(head);
    for (int i = 0; i < 8; ++i) {
        slow.send(QByteArray(50'000, 'x'));
        QTest::qWait(300);
    }
    QVERIFY(slow.readUntil("body of 400000").startsWith("HTTP/1.1 200"));
    // A byte now and then is none.
    const RawClient trickle(m_port);
    trickle.send(head);
    bool isOpen = true;
    for (int i = 0; i < 50 && isOpen; ++i) {
        trickle.send("x");
        isOpen = !trickle.waitForReset(100);
    }
    QVERIFY(!isOpen);
}

void TestBackendEngine::endsWhatHasBegun()
{
    start({.host = u"127.0.0.1"_s});
    const RawClient idle(m_port);
    const RawClient begun(m_port);
    begun.send("GET /lane/sleep HTTP/1.1\r\nHost: x\r\n\r\n");
    QTRY_COMPARE(m_application->done, 1);
    m_engine->stop();
    QVERIFY(idle.readAll(1000).isEmpty());
    const QByteArray got = begun.readAll();
    QVERIFY(got.startsWith("HTTP/1.1 200"));
    QVERIFY(got.contains("Connection: close"));
    QVERIFY(!RawClient(m_port).isConnected());
}

void TestBackendEngine::dropsWorkThatNobodyWaitsFor()
{
    start({.host = u"127.0.0.1"_s, .application = 300ms});
    const RawClient busy(m_port);
    busy.send("GET /lane/sleep HTTP/1.1\r\nHost: x\r\n\r\n");
    QTRY_COMPARE(m_application->done, 1);
    // These wait for longer than anybody waits for them.
    for (int i = 0; i < 3; ++i)
        QVERIFY(ask("/").startsWith("HTTP/1.1 503"));
    QVERIFY(busy.readUntil("}").startsWith("HTTP/1.1 503"));
    QTRY_VERIFY(ask("/").startsWith("HTTP/1.1 200"));
    // Begun: the first, and such as were answered.
    QVERIFY2(m_application->done <= 4, QByteArray::number(m_application->done).constData());
}

// On all of the engine's threads; nobody gets another one's answer, also while it stops.
void TestBackendEngine::servesManyAtOnce()
{
    start({.host = u"127.0.0.1"_s, .threads = 4, .connectionsOfAddress = 1000});
    std::atomic<int> served = 0;
    std::atomic<int> wrong = 0;
    const auto work = [this, &served, &wrong](int first) {
        for (int number = first;; number += 2) {
            const RawClient client(m_port);
            for (int kept = 0; kept < 2; ++kept) {
                const QByteArray mine = QByteArray::number(number + kept);
                client.send("GET /echo HTTP/1.1\r\nHost: x\r\nX-Number: " + mine + "\r\n\r\n");
                const QByteArray got = client.readUntil("\r\n\r\n" + mine);
                if (got.isEmpty())
                    return; // It has stopped.
                ++(got.endsWith(QByteArray("\r\n\r\n" + mine)) ? served : wrong);
            }
        }
    };
    std::vector<std::thread> clients;
    for (int i = 0; i < 6; ++i)
        clients.emplace_back(work, 1'000'000 * (i + 1));
    QTRY_VERIFY(served > 1000 || wrong > 0);
    m_engine->stop();
    for (std::thread& client : clients)
        client.join();
    QCOMPARE(wrong, 0);
}

QTEST_GUILESS_MAIN(TestBackendEngine)
#include "tst_backend_engine.moc"
