#include "tests/support/backend_process.h"
#include "tests/support/raw_client.h"

#include <QJsonDocument>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

// Where a request ends and whom it comes from: what two readers could understand differently is
// refused, and no client's connection depends on another's.
class TestBackendFraming : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void refusesAmbiguousHeads_data();
    void refusesAmbiguousHeads();
    void readsHeads_data();
    void readsHeads();
    void leavesPercentsInFieldsAlone();
    void givesLeaveOnlyWhereAsked_data();
    void givesLeaveOnlyWhereAsked();
    void closesWhenAsked_data();
    void closesWhenAsked();
    void answersWhoEndsTheirSending();
    void knowsWhoAsksBehindProxy_data();
    void knowsWhoAsksBehindProxy();
    void knowsIpv4PlayersOnIpv6Listener();
    void keepsTlsClientsApart_data();
    void keepsTlsClientsApart();
    void offersNoOldTls_data();
    void offersNoOldTls();

private:
    RawReply send(const QByteArray& bytes) { return raw_http::send(m_backend.port(), bytes); }

    BackendProcess m_backend;
    QByteArray m_token;
    QTemporaryDir m_directory;
    QString m_certificate;
    QString m_key;
};

namespace {

constexpr auto get = "GET /manifest.json HTTP/1.1\r\nHost: x\r\n\r\n";
const QByteArray login = R"({"username":"Framed","password":"correct horse"})";

// The addresses in the access log, in order.
QStringList loggedAddresses(BackendProcess& backend)
{
    QStringList addresses;
    for (const QByteArray& line : backend.output().split('\n')) {
        const QJsonObject entry = QJsonDocument::fromJson(line).object();
        if (entry[u"event"_s] == "request"_L1)
            addresses.append(entry[u"address"_s].toString());
    }
    return addresses;
}

} // namespace

void TestBackendFraming::initTestCase()
{
    QVERIFY2(m_backend.start(), m_backend.output().constData());
    const RawReply created =
        raw_http::post(m_backend.port(), "/auth/register", "application/json", login);
    m_token = created.json()[u"token"_s].toString().toLatin1();
    QVERIFY(!m_token.isEmpty());
    m_key = m_directory.filePath(u"key.pem"_s);
    m_certificate = m_directory.filePath(u"certificate.pem"_s);
    QProcess openssl;
    openssl.start(u"openssl"_s,
                  {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-keyout"_s,
                   m_key, u"-out"_s, m_certificate, u"-days"_s, u"2"_s, u"-subj"_s,
                   u"/CN=localhost"_s, u"-addext"_s, u"subjectAltName=IP:127.0.0.1"_s});
    QVERIFY(openssl.waitForFinished() && openssl.exitCode() == 0);
}

void TestBackendFraming::refusesAmbiguousHeads_data()
{
    QTest::addColumn<QByteArray>("head");
    QTest::addColumn<int>("status");
    const auto row = [](const char* name, const QByteArray& head, int status) {
        QTest::newRow(name) << head << status;
    };
    const QByteArray post = "POST /auth/login HTTP/1.1\r\nHost: x\r\n"
                            "Content-Type: application/json\r\n";
    row("blank before the colon", post + "Content-Length : 40\r\n\r\n", 400);
    row("tab before the colon", post + "Content-Length\t: 40\r\n\r\n", 400);
    row("blank before the name", post + " Content-Length: 40\r\n\r\n", 400);
    row("folded line", post + "Content-Length:\r\n 40\r\n\r\n", 400);
    row("folded with a tab", "GET / HTTP/1.1\r\nHost: x\r\nX: a\r\n\tb\r\n\r\n", 400);
    row("LF alone everywhere", "GET /manifest.json HTTP/1.1\nHost: x\n\n", 400);
    row("LF alone once", "GET /manifest.json HTTP/1.1\r\nHost: x\nX: y\r\n\r\n", 400);
    row("LF in a value", post + "X: a\nContent-Length: 40\r\n\r\n", 400);
    row("CR alone", "GET /manifest.json HTTP/1.1\r\nHost: x\rX: y\r\n\r\n", 400);
    row("NUL in a value", QByteArray("GET / HTTP/1.1\r\nHost: x\0y\r\n\r\n", 30), 400);
    row("no colon", "GET / HTTP/1.1\r\nHost: x\r\nnonsense\r\n\r\n", 400);
    row("length twice, the same", post + "Content-Length: 40\r\nContent-Length: 40\r\n\r\n", 400);
    row("lengths in a list", post + "Content-Length: 40, 40\r\n\r\n", 400);
    row("two lengths", post + "Content-Length: 40\r\nContent-Length: 0\r\n\r\n", 400);
    row("lengths in a list, before a body that is taken",
        post + "Content-Length: " + QByteArray::number(login.size()) + ", " +
            QByteArray::number(login.size()) + "\r\n\r\n" + login,
        400);
    row("length beyond all", post + "Content-Length: 18446744073709551615\r\n\r\n", 413);
    row("length with a sign", post + "Content-Length: +40\r\n\r\n", 400);
    row("length in hexadecimal", post + "Content-Length: 0x28\r\n\r\n", 400);
    row("chunks and length", post + "Transfer-Encoding: chunked\r\nContent-Length: 40\r\n\r\n",
        411);
    row("length and chunks", post + "Content-Length: 40\r\nTransfer-Encoding: chunked\r\n\r\n",
        411);
    row("unknown coding and length",
        post + "Content-Length: 40\r\nTransfer-Encoding: xchunked\r\n\r\n", 411);
    row("no host", "GET /manifest.json HTTP/1.1\r\n\r\n", 400);
    row("two hosts", "GET /manifest.json HTTP/1.1\r\nHost: x\r\nHost: y\r\n\r\n", 400);
    row("unknown expectation", post + "Expect: wonders\r\nContent-Length: 40\r\n\r\n", 417);
    row("unknown expectation behind a known one",
        post + "Expect: 100-continue\r\nExpect: wonders\r\nContent-Length: 40\r\n\r\n", 417);
    row("101 fields",
        "GET / HTTP/1.1\r\nHost: x\r\n" + QByteArray("A: b\r\n").repeated(100) + "\r\n", 431);
    row("17 KiB", "GET / HTTP/1.1\r\nHost: x\r\nX: " + QByteArray(17 * 1024, 'a') + "\r\n\r\n",
        431);
    row("target of 9 KiB", "GET /" + QByteArray(9 * 1024, 'a') + " HTTP/1.1\r\nHost: x\r\n\r\n",
        414);
}

void TestBackendFraming::refusesAmbiguousHeads()
{
    QFETCH(QByteArray, head);
    QFETCH(int, status);
    const RawClient client(m_backend.port());
    QVERIFY(client.isConnected());
    // What follows looks like a body to one reader and like a request to another.
    client.send(head + QByteArray(get).leftJustified(40));
    const QByteArray got = client.readAll();
    QVERIFY2(got.startsWith(QByteArray("HTTP/1.1 " + QByteArray::number(status))), got.constData());
    QCOMPARE(got.count("HTTP/1.1 "), 1);
    QVERIFY(got.contains(R"({"error":")"));
}

void TestBackendFraming::readsHeads_data()
{
    QTest::addColumn<QByteArray>("head");
    const auto row = [](const char* name, const QByteArray& head) { QTest::newRow(name) << head; };
    row("absolute form", "GET http://play.example/manifest.json HTTP/1.1\r\nHost: x\r\n\r\n");
    row("absolute form, other case",
        "GET HTTPS://play.example:443/manifest.json?a=b HTTP/1.1\r\nHost: x\r\n\r\n");
    row("HTTP/1.0 without host", "GET /manifest.json HTTP/1.0\r\n\r\n");
    row("empty host", "GET /manifest.json HTTP/1.1\r\nHost:\r\n\r\n");
    row("100 fields", "GET /manifest.json HTTP/1.1\r\nHost: x\r\n" +
                          QByteArray("A: b\r\n").repeated(99) + "\r\n");
    row("15 KiB",
        "GET /manifest.json HTTP/1.1\r\nHost: x\r\nX: " + QByteArray(15 * 1024, 'a') + "\r\n\r\n");
    row("blanks around a value", "GET /manifest.json HTTP/1.1\r\nHost: \t x \t \r\n\r\n");
    row("escapes in the path", "GET /%6Danifest.json HTTP/1.1\r\nHost: x\r\n\r\n");
}

void TestBackendFraming::readsHeads()
{
    QFETCH(QByteArray, head);
    const RawReply reply = send(head);
    QVERIFY2(reply.status == 200, reply.whole.constData());
    QVERIFY(reply.json().contains(u"versions"_s));
}

void TestBackendFraming::leavesPercentsInFieldsAlone()
{
    QByteArray escaped = m_token;
    escaped.replace(0, 1, QByteArray('%' + m_token.left(1).toHex()));
    const auto validate = [this](const QByteArray& token) {
        return raw_http::get(m_backend.port(), "/auth/validate", {raw_http::bearer(token)}).status;
    };
    QCOMPARE(validate(m_token), 200);
    QCOMPARE(validate(escaped), 401);
}

void TestBackendFraming::givesLeaveOnlyWhereAsked_data()
{
    QTest::addColumn<QByteArray>("start");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("leave");
    QTest::addColumn<int>("status");
    const QByteArray post = "POST /auth/login HTTP/1.1\r\nHost: x\r\n"
                            "Content-Type: application/json\r\n";
    QTest::newRow("any case") << post + "Expect: 100-Continue\r\n" << login << true << 200;
    QTest::newRow("not asked for") << post << login << false << 200;
    QTest::newRow("by HTTP/1.0") << QByteArray(post).replace("1.1", "1.0") +
                                        "Expect: 100-continue\r\n"
                                 << login << false << 200;
    QTest::newRow("without a body") << QByteArray("GET /manifest.json HTTP/1.1\r\nHost: x\r\n"
                                                  "Expect: 100-continue\r\n")
                                    << QByteArray() << false << 200;
    QTest::newRow("too large") << post + "Expect: 100-continue\r\n"
                               << QByteArray(9000, ' ') << false << 413;
}

void TestBackendFraming::givesLeaveOnlyWhereAsked()
{
    QFETCH(QByteArray, start);
    QFETCH(QByteArray, body);
    QFETCH(bool, leave);
    QFETCH(int, status);
    const RawClient client(m_backend.port());
    client.send(start + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n");
    // Without leave nothing comes before the body, unless that is not wanted at all.
    if (leave)
        QCOMPARE(client.readUntil("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
    if (status == 200)
        client.send(body);
    const QByteArray got = client.readUntil("}");
    QVERIFY2(got.startsWith(QByteArray("HTTP/1.1 " + QByteArray::number(status))), got.constData());
}

void TestBackendFraming::closesWhenAsked_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<bool>("closes");
    const auto row = [](const QByteArray& version, const QByteArray& connection, bool closes) {
        QTest::newRow(QByteArray(version + " " + connection).constData())
            << QByteArray("GET /manifest.json HTTP/" + version + "\r\nHost: x\r\n" + connection +
                          "\r\n\r\n")
            << closes;
    };
    row("1.1", "Connection: close", true);
    row("1.1", "Connection: Close", true);
    row("1.1", "connection: keep-alive, CLOSE", true);
    row("1.1", "Connection: x\r\nConnection: close", true);
    row("1.1", "Connection: keep-alive", false);
    row("1.1", "X: close", false);
    row("1.0", "X: y", true);
    row("1.0", "Connection: Keep-Alive", false);
}

void TestBackendFraming::closesWhenAsked()
{
    QFETCH(QByteArray, request);
    QFETCH(bool, closes);
    const RawClient client(m_backend.port());
    client.send(request);
    const QByteArray got = client.readUntil("\"versions\"");
    QVERIFY2(got.startsWith("HTTP/1.1 200"), got.constData());
    QCOMPARE(got.contains("Connection: close"), closes);
    client.send(get);
    QCOMPARE(client.readUntil("\"versions\"").startsWith("HTTP/1.1 200"), !closes);
}

void TestBackendFraming::answersWhoEndsTheirSending()
{
    const RawClient client(m_backend.port());
    client.send(QByteArray(get) +
                "POST /auth/login HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                "Content-Length: " +
                QByteArray::number(login.size()) + "\r\n\r\n" + login);
    client.endSending();
    const QByteArray got = client.readAll();
    QCOMPARE(got.count("HTTP/1.1 200"), 2);
    QVERIFY(got.contains("token"));
}

void TestBackendFraming::knowsWhoAsksBehindProxy_data()
{
    QTest::addColumn<QByteArray>("fields");
    QTest::addColumn<QString>("address");
    const auto row = [](const char* name, const QByteArray& fields, const QString& address) {
        QTest::newRow(name) << fields << address;
    };
    row("none", "", u"127.0.0.1"_s);
    row("one", "X-Forwarded-For: 192.0.2.1\r\n", u"192.0.2.1"_s);
    row("client's word first", "X-Forwarded-For: 198.51.100.7, 192.0.2.1\r\n", u"192.0.2.1"_s);
    row("client's word on a line of its own",
        "X-Forwarded-For: 198.51.100.7\r\nX: y\r\nx-forwarded-for: 192.0.2.1\r\n", u"192.0.2.1"_s);
    row("with a port", "X-Forwarded-For: 192.0.2.1:50123\r\n", u"192.0.2.1"_s);
    row("IPv6", "X-Forwarded-For: 2001:DB8::1\r\n", u"2001:db8::1"_s);
    row("IPv6 with a port", "X-Forwarded-For: [2001:db8::1]:50123\r\n", u"2001:db8::1"_s);
    row("IPv4 as IPv6", "X-Forwarded-For: ::ffff:192.0.2.1\r\n", u"192.0.2.1"_s);
    row("no address", "X-Forwarded-For: 198.51.100.7, unknown\r\n", u"127.0.0.1"_s);
}

void TestBackendFraming::knowsWhoAsksBehindProxy()
{
    QFETCH(QByteArray, fields);
    QFETCH(QString, address);
    BackendProcess behind;
    QVERIFY(behind.start({u"--trusted-proxy"_s, u"127.0.0.1"_s, u"--access-log"_s, u"-"_s}));
    raw_http::send(behind.port(), "GET /healthz HTTP/1.1\r\nHost: x\r\n" + fields + "\r\n");
    QTRY_COMPARE(loggedAddresses(behind), QStringList{address});
}

void TestBackendFraming::knowsIpv4PlayersOnIpv6Listener()
{
    BackendProcess backend;
    if (!backend.start({u"--listen"_s, u"[::]:0"_s, u"--public-origin"_s, u"http://x"_s}))
        QSKIP("this machine has no IPv6");
    const auto tryFrom = [&backend](const QByteArray& address, int number) {
        const QByteArray body =
            R"({"username":"Guess)" + QByteArray::number(number) + R"(","password":"wrong word"})";
        const RawClient client(backend.port(), address);
        client.send("POST /auth/login HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                    "Content-Length: " +
                    QByteArray::number(body.size()) + "\r\n\r\n" + body);
        return client.readUntil("}").mid(9, 3);
    };
    QByteArray status;
    for (int i = 0; i < 30 && status != "429"; ++i)
        status = tryFrom("127.0.0.8", i);
    QCOMPARE(status, "429");
    QCOMPARE(tryFrom("127.0.0.9", 100), "401");
}

void TestBackendFraming::keepsTlsClientsApart_data()
{
    QTest::addColumn<bool>("plain");
    QTest::newRow("somebody speaks plaintext") << true;
    QTest::newRow("somebody ends without close_notify") << false;
}

void TestBackendFraming::keepsTlsClientsApart()
{
    QFETCH(bool, plain);
    BackendProcess backend;
    QVERIFY(backend.start({u"--tls-certificate"_s, m_certificate, u"--tls-key"_s, m_key}));
    QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
    trusting.setCaCertificates(QSslCertificate::fromPath(m_certificate));
    const auto connected = [&](QSslSocket& socket) {
        socket.setSslConfiguration(trusting);
        socket.connectToHostEncrypted(u"127.0.0.1"_s, backend.port());
        return socket.waitForEncrypted(10000);
    };
    QSslSocket innocent;
    QVERIFY(connected(innocent));
    for (int i = 0; i < 20; ++i) {
        innocent.write(get);
        QByteArray got;
        // The other one does its worst while this one waits for its answer, and before it.
        for (int j = 0; j < 5; ++j) {
            if (plain) {
                const RawClient other(backend.port());
                other.send(get);
                other.readAll(5000);
            } else {
                QSslSocket other;
                QVERIFY(connected(other));
                other.abort();
            }
        }
        while (!got.contains("\"versions\"") && innocent.waitForReadyRead(5000))
            got += innocent.readAll();
        QVERIFY2(got.startsWith("HTTP/1.1 200"),
                 QByteArray("lost at request " + QByteArray::number(i)).constData());
    }
}

void TestBackendFraming::offersNoOldTls_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("offered");
    QTest::newRow("1.3") << QStringList{u"-tls1_3"_s} << true;
    QTest::newRow("1.2") << QStringList{u"-tls1_2"_s} << true;
    QTest::newRow("1.1") << QStringList{u"-tls1_1"_s, u"-cipher"_s, u"ALL:@SECLEVEL=0"_s} << false;
    QTest::newRow("CBC")
        << QStringList{u"-tls1_2"_s, u"-cipher"_s,
                       u"ECDHE-RSA-AES256-SHA384:ECDHE-RSA-AES128-SHA:AES128-SHA"_s}
        << false;
    QTest::newRow("without forward secrecy")
        << QStringList{u"-tls1_2"_s, u"-cipher"_s, u"AES256-GCM-SHA384"_s} << false;
}

void TestBackendFraming::offersNoOldTls()
{
    QFETCH(QStringList, options);
    QFETCH(bool, offered);
    BackendProcess backend;
    QVERIFY(backend.start({u"--tls-certificate"_s, m_certificate, u"--tls-key"_s, m_key}));
    QProcess client;
    client.start(u"openssl"_s,
                 QStringList{u"s_client"_s, u"-connect"_s, u"127.0.0.1:%1"_s.arg(backend.port())} +
                     options);
    client.closeWriteChannel();
    QVERIFY(client.waitForFinished(20000));
    const QByteArray said = client.readAllStandardOutput();
    QVERIFY2(said.contains("Cipher is (NONE)") == !offered, said.constData());
}

QTEST_GUILESS_MAIN(TestBackendFraming)
#include "tst_backend_framing.moc"
