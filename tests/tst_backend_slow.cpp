#include "tests/support/backend_process.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QTcpSocket>
#include <QTest>

#include <memory>
#include <signal.h>
#include <vector>

using namespace Qt::StringLiterals;

// Clients that are slow, silent or gone keep nobody else from being answered, and nothing for long.
class TestBackendSlow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void answersWhileClientsStall();
    void dropsClientsThatStall();
    void survivesClientsThatHangUp();
    void answersWhatHasBegunBeforeItStops();

private:
    std::unique_ptr<QTcpSocket> connected();

    BackendProcess m_backend;
    QByteArray m_filePath;
};

namespace {

constexpr auto get = "GET /manifest.json HTTP/1.1\r\nHost: x\r\n\r\n";

} // namespace

void TestBackendSlow::initTestCase()
{
    QVERIFY2(m_backend.start(), m_backend.output().constData());
    QFile file(m_backend.data() + u"/build"_s);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(200'000, 'x'));
    file.close();
    const QStringList words{u"publish"_s, u"launcher"_s, u"--version"_s,
                            u"2"_s,       u"--file"_s,   file.fileName()};
    QCOMPARE(m_backend.command(words).exitCode, 0);
    const QString url = raw_http::get(m_backend.port(), "/manifest.json")
                            .json()[u"launcherLinux"_s][u"url"_s]
                            .toString();
    m_filePath = url.mid(m_backend.origin().size()).toLatin1();
}

std::unique_ptr<QTcpSocket> TestBackendSlow::connected()
{
    auto socket = std::make_unique<QTcpSocket>();
    socket->connectToHost(u"127.0.0.1"_s, m_backend.port());
    return socket->waitForConnected(5000) ? std::move(socket) : nullptr;
}

void TestBackendSlow::answersWhileClientsStall()
{
    // Many more than there are workers: silent, in the middle of a head, of a body, of a download.
    std::vector<std::unique_ptr<QTcpSocket>> stalled;
    for (int i = 0; i < 60; ++i) {
        stalled.push_back(connected());
        QVERIFY(stalled.back());
        const QByteArray starts[] = {
            "", "GET /manif",
            "POST /auth/login HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
            "Content-Length: 500\r\n\r\n{",
            "GET " + m_filePath + " HTTP/1.1\r\nHost: x\r\n\r\n"};
        stalled.back()->setReadBufferSize(1);
        stalled.back()->write(starts[i % 4]);
        stalled.back()->flush();
    }
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 20; ++i)
        QCOMPARE(raw_http::send(m_backend.port(), get).status, 200);
    QVERIFY2(timer.elapsed() < 5000, QByteArray::number(timer.elapsed()).constData());
}

void TestBackendSlow::dropsClientsThatStall()
{
    struct Client
    {
        QByteArray name;
        QByteArray start;
        int seconds; // how long it is borne with
        qint64 droppedAfterMs = 0;
        std::unique_ptr<QTcpSocket> socket = {};
    };
    std::vector<Client> clients;
    clients.push_back({"silent", "", 10});
    clients.push_back({"in the middle of a head", "GET /manifest.json HTTP/1.1\r\n", 10});
    clients.push_back({"idle after an answer", get, 15});
    clients.push_back({"in the middle of a body",
                       "POST /auth/login HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                       "Content-Length: 500\r\n\r\n{",
                       15});
    for (Client& client : clients) {
        client.socket = connected();
        QVERIFY(client.socket);
        client.socket->write(client.start);
        client.socket->flush();
    }
    QElapsedTimer timer;
    timer.start();
    bool waiting = true;
    while (waiting && timer.elapsed() < 40'000) {
        waiting = false;
        // A byte now and then does not buy more time.
        clients[1].socket->write("X");
        clients[3].socket->write(" ");
        for (Client& client : clients) {
            const bool open = client.socket->state() == QAbstractSocket::ConnectedState &&
                              !client.socket->waitForDisconnected(100);
            waiting = waiting || open;
            if (!open && client.droppedAfterMs == 0)
                client.droppedAfterMs = timer.elapsed();
        }
    }
    for (const Client& client : clients) {
        const qint64 ms = client.droppedAfterMs;
        QVERIFY2(ms > 1000 * (client.seconds - 1) && ms < 1000 * (client.seconds + 8),
                 QByteArray(client.name + ": " + QByteArray::number(ms) + " ms").constData());
    }
}

void TestBackendSlow::survivesClientsThatHangUp()
{
    for (int i = 0; i < 50; ++i) {
        const auto socket = connected();
        QVERIFY(socket);
        socket->write(i % 2 ? QByteArray(get).left(i)
                            : "GET " + m_filePath + " HTTP/1.1\r\nHost: x\r\n\r\n");
        socket->flush();
        socket->abort();
    }
    const RawReply after = raw_http::send(m_backend.port(), get);
    QVERIFY2(after.status == 200, m_backend.output().right(3000).constData());
}

void TestBackendSlow::answersWhatHasBegunBeforeItStops()
{
    const QByteArray body = R"({"username":"LastOne","password":"correct horse"})";
    const auto idle = connected();
    const auto begun = connected();
    QVERIFY(idle && begun);
    begun->write("POST /auth/register HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                 "Expect: 100-continue\r\nContent-Length: " +
                 QByteArray::number(body.size()) + "\r\n\r\n");
    QVERIFY(begun->waitForReadyRead(5000));
    QVERIFY(begun->readAll().startsWith("HTTP/1.1 100"));
    QCOMPARE(::kill(static_cast<pid_t>(m_backend.processId()), SIGTERM), 0);
    // It lets nobody in any more, and who has not asked for anything goes.
    QVERIFY(idle->waitForDisconnected(5000));
    QTRY_VERIFY(connected() == nullptr);

    begun->write(body);
    QByteArray got;
    while (begun->waitForReadyRead(10000))
        got += begun->readAll();
    QVERIFY2(got.startsWith("HTTP/1.1 200"), got.constData());
    QCOMPARE(m_backend.stop(), 0);
}

QTEST_GUILESS_MAIN(TestBackendSlow)
#include "tst_backend_slow.moc"
