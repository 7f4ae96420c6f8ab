#include "tests/support/backend_process.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QTcpSocket>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

// The protocol itself: what any client, honest or not, can send on a connection.
class TestBackendHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void refusesHostileRequests_data();
    void refusesHostileRequests();
    void survivesHostileHeads_data();
    void survivesHostileHeads();
    void keepsConnectionsOpen();
    void answersPipelinedRequests();
    void takesBodyInPieces();
    void givesLeaveToContinue();
    void refusesLargeBodyBeforeItIsSent();
    void neverTakesBodyForNextRequest_data();
    void neverTakesBodyForNextRequest();
    void servesRanges_data();
    void servesRanges();
    void honoursIfRange();
    void answersHead();
    void namesAllowedMethods();
    void sendsSecurityHeaders();
    void doesNotCompress();

private:
    RawReply send(const QByteArray& bytes) { return raw_http::send(m_backend.port(), bytes); }
    std::unique_ptr<QTcpSocket> connected();

    BackendProcess m_backend;
    QByteArray m_token;
    QByteArray m_filePath;
    QByteArray m_content;
};

namespace {

constexpr auto get = "GET /manifest.json HTTP/1.1\r\nHost: x\r\n\r\n";

QByteArray readUntil(QTcpSocket& socket, const QByteArray& wanted, qsizetype count = 1)
{
    QByteArray got;
    QElapsedTimer timer;
    timer.start();
    while (got.count(wanted) < count && timer.elapsed() < 10000 &&
           (socket.bytesAvailable() > 0 || socket.waitForReadyRead(1000) ||
            socket.state() == QAbstractSocket::ConnectedState))
        got += socket.readAll();
    return got;
}

bool waitForClose(QTcpSocket& socket, int ms)
{
    return socket.state() == QAbstractSocket::UnconnectedState || socket.waitForDisconnected(ms);
}

struct Operation
{
    QByteArray path;
    QByteArray type;
    bool needsSession;
};

const QList<Operation> posts{{"/auth/register", "application/json", false},
                             {"/auth/login", "application/json", false},
                             {"/auth/rename", "application/json", true},
                             {"/skins/upload", "image/png", true},
                             {"/models/upload", "application/json", true}};

} // namespace

void TestBackendHttp::initTestCase()
{
    QVERIFY2(m_backend.start(), m_backend.output().constData());
    const RawReply created =
        raw_http::postJson(m_backend.port(), "/auth/register",
                           {{u"username"_s, u"Hostile"_s}, {u"password"_s, u"correct horse"_s}});
    m_token = created.json()[u"token"_s].toString().toLatin1();
    QVERIFY(!m_token.isEmpty());

    // A published file, for ranges: a launcher build may be anything.
    for (int i = 0; i < 40'000; ++i)
        m_content += QByteArray::number(i).rightJustified(5, '0');
    QFile file(m_backend.data() + u"/build"_s);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(m_content);
    file.close();
    QCOMPARE(m_backend
                 .command({u"publish"_s, u"launcher"_s, u"--version"_s, u"2"_s, u"--file"_s,
                           file.fileName()})
                 .exitCode,
             0);
    const QString url = raw_http::get(m_backend.port(), "/manifest.json")
                            .json()[u"launcherLinux"_s][u"url"_s]
                            .toString();
    m_filePath = url.mid(m_backend.origin().size()).toLatin1();
}

std::unique_ptr<QTcpSocket> TestBackendHttp::connected()
{
    auto socket = std::make_unique<QTcpSocket>();
    socket->connectToHost(u"127.0.0.1"_s, m_backend.port());
    return socket->waitForConnected(5000) ? std::move(socket) : nullptr;
}

void TestBackendHttp::refusesHostileRequests_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QList<int>>("statuses");
    const auto row = [](const QByteArray& name, const QByteArray& head, const QByteArray& body,
                        const QList<int>& statuses) {
        QTest::newRow(name.constData())
            << QByteArray(head + "\r\nHost: x\r\n\r\n" + body) << statuses;
    };
    for (const Operation& one : posts) {
        const QByteArray start = "POST " + one.path + " HTTP/1.1";
        const QByteArray session =
            one.needsSession ? QByteArray("\r\nAuthorization: Bearer " + m_token) : QByteArray();
        const QByteArray typed = start + session + "\r\nContent-Type: " + one.type;
        const auto sized = [&typed](const QByteArray& body) {
            return QByteArray(typed + "\r\nContent-Length: " + QByteArray::number(body.size()));
        };
        const auto bodyRow = [&](const char* what, const QByteArray& body) {
            row(one.path + ": " + what, sized(body), body, {400, 413, 422});
        };
        bodyRow("no body", {});
        bodyRow("broken JSON", R"({"username": "a)");
        bodyRow("array", "[]");
        bodyRow("number", "12");
        bodyRow("wrong types", R"({"username": 5, "password": ["x"], "elements": "y"})");
        bodyRow("null bytes", QByteArray(100, '\0'));
        bodyRow("bad UTF-8", "{\"username\": \"\xff\xfe\xfd\", \"password\": \"\xc3\x28\"}");
        bodyRow("a thousand levels", QByteArray(1500, '[') + QByteArray(1500, ']'));
        bodyRow("deep objects",
                QByteArray(R"({"a":)").repeated(1500) + '1' + QByteArray(1500, '}'));
        bodyRow("too long", QByteArray(3 * 1024 * 1024, ' '));
        row(one.path + ": no content type", start + session + "\r\nContent-Length: 2", "{}", {415});
        row(one.path + ": wrong content type",
            start + session + "\r\nContent-Type: text/html\r\nContent-Length: 2", "{}", {415});
        row(one.path + ": multipart",
            start + session +
                "\r\nContent-Type: multipart/form-data; boundary=x\r\nContent-Length: 2",
            "{}", {415});
        row(one.path + ": chunked", typed + "\r\nTransfer-Encoding: chunked",
            "2\r\n{}\r\n0\r\n\r\n", {411});
        row(one.path + ": chunked and length",
            typed + "\r\nTransfer-Encoding: chunked\r\nContent-Length: 2", "{}", {411});
        row(one.path + ": gzip", typed + "\r\nContent-Encoding: gzip\r\nContent-Length: 4",
            "\x1f\x8b\x08\x03", {415});
        row(one.path + ": negative length", typed + "\r\nContent-Length: -1", {}, {400});
        row(one.path + ": length of letters", typed + "\r\nContent-Length: 2x", "{}", {400});
        row(one.path + ": huge length", typed + "\r\nContent-Length: 99999999999999999999", {},
            {400});
        row(one.path + ": two lengths", typed + "\r\nContent-Length: 2\r\nContent-Length: 3", "{}",
            {400});
        row(one.path + ": no length", typed, {}, {400, 422});
        if (one.needsSession) {
            for (const QByteArray& token :
                 {QByteArray(), QByteArray("Bearer "), QByteArray("Bearer wrong"),
                  QByteArray("Basic " + m_token), QByteArray("Bearer " + m_token + "0"),
                  QByteArray("Bearer " + QByteArray(4000, 'a')), QByteArray("Bearer ' OR 1=1 --")})
                row(one.path + ": token " + token.left(20),
                    start + "\r\nContent-Type: " + one.type + "\r\nContent-Length: 2" +
                        "\r\nAuthorization: " + token,
                    "{}", {401});
        }
        row(one.path + ": PUT", "PUT " + one.path + " HTTP/1.1\r\nContent-Length: 2", "{}", {405});
        row(one.path + ": DELETE", "DELETE " + one.path + " HTTP/1.1", {}, {405, 404});
    }
    for (const QByteArray& path : {QByteArray("/manifest.json"), QByteArray("/auth/validate")}) {
        row(path + ": POST", "POST " + path + " HTTP/1.1\r\nContent-Length: 0", {}, {405});
        row(path + ": OPTIONS", "OPTIONS " + path + " HTTP/1.1", {}, {405});
        row(path + ": PATCH", "PATCH " + path + " HTTP/1.1\r\nContent-Length: 0", {}, {405});
    }
    row("GET with a body", "GET /manifest.json HTTP/1.1\r\nContent-Length: 5", "hello", {413});
    row("logout with a body",
        "POST /auth/logout HTTP/1.1\r\nContent-Length: 5\r\nAuthorization: Bearer " + m_token,
        "hello", {413});
    row("unknown address", "GET /nothing/here HTTP/1.1", {}, {404});
    row("root", "GET / HTTP/1.1", {}, {404});
}

void TestBackendHttp::refusesHostileRequests()
{
    QFETCH(QByteArray, request);
    QFETCH(QList<int>, statuses);
    const RawReply reply = send(request);
    QVERIFY2(statuses.contains(reply.status), reply.whole.left(400).constData());
    QCOMPARE(reply.headers.value("content-type"), "application/json");
    QVERIFY(!reply.error().isEmpty());
    // Nothing of the inside shows.
    for (const char* leak : {"SQL", "sqlite", "exception", "EXCEPTION_WHAT", "/tmp", "std::"})
        QVERIFY2(!reply.whole.contains(leak), reply.whole.constData());
    // And the session stands.
    QCOMPARE(raw_http::get(m_backend.port(), "/auth/validate", {raw_http::bearer(m_token)}).status,
             200);
}

void TestBackendHttp::survivesHostileHeads_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QList<int>>("statuses");
    const QByteArray host = "Host: x\r\n";
    const auto row = [](const char* name, const QByteArray& request, const QList<int>& statuses) {
        QTest::newRow(name) << request << statuses;
    };
    row("no HTTP", "hello\r\n\r\n", {400});
    row("blank line", "\r\n\r\n", {400});
    row("binary", QByteArray("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", 15), {400});
    row("unknown version", "GET / HTTP/9.9\r\n" + host + "\r\n", {400});
    row("unknown method", "BREW / HTTP/1.1\r\n" + host + "\r\n", {400, 404, 405});
    row("9,000 letters of address",
        "GET /" + QByteArray(9000, 'a') + " HTTP/1.1\r\n" + host + "\r\n", {414, 400});
    row("head without end", "GET / HTTP/1.1\r\nX: " + QByteArray(20'000, 'a'), {431});
    row("thousands of fields",
        "GET / HTTP/1.1\r\n" + QByteArray("A: b\r\n").repeated(2700) + "\r\n", {404, 431});
    row("field of 8,000 letters",
        "GET /manifest.json HTTP/1.1\r\n" + host + "X: " + QByteArray(8000, 'a') + "\r\n\r\n",
        {200});
    row("NUL in the address", QByteArray("GET /a\0b HTTP/1.1\r\n\r\n", 21), {400, 404});
    row("percent signs", "GET /%%%2%zz%00%ff HTTP/1.1\r\n" + host + "\r\n", {404});
    row("thousand ranges",
        "GET " + m_filePath + " HTTP/1.1\r\n" + host +
            "Range: bytes=" + QByteArray("0-0,").repeated(1900) + "0-0\r\n\r\n",
        {200, 416});
    row("ranges of thousands of digits",
        "GET " + m_filePath + " HTTP/1.1\r\n" + host + "Range: bytes=" + QByteArray(7000, '9') +
            "-\r\n\r\n",
        {200, 416});
    row("range that is none",
        "GET " + m_filePath + " HTTP/1.1\r\n" + host + "Range: lines=1\r\n\r\n", {200});
    row("range on an error", "GET /nothing HTTP/1.1\r\n" + host + "Range: bytes=0-0\r\n\r\n",
        {404});
}

void TestBackendHttp::survivesHostileHeads()
{
    QFETCH(QByteArray, request);
    QFETCH(QList<int>, statuses);
    const RawReply reply = send(request);
    QVERIFY2(statuses.contains(reply.status), reply.whole.left(300).constData());
    if (reply.status != 200)
        QVERIFY2(!reply.error().isEmpty(), reply.whole.left(600).constData());
    QCOMPARE(send(get).status, 200);
}

void TestBackendHttp::keepsConnectionsOpen()
{
    const auto socket = connected();
    QVERIFY(socket);
    for (int i = 0; i < 20; ++i) {
        socket->write(get);
        const QByteArray got = readUntil(*socket, "\"versions\"");
        QVERIFY2(got.startsWith("HTTP/1.1 200"), got.constData());
    }
    socket->write("GET /manifest.json HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    QVERIFY(readUntil(*socket, "\"versions\"").contains("Connection: close"));
    QVERIFY(waitForClose(*socket, 5000));
}

void TestBackendHttp::answersPipelinedRequests()
{
    const auto socket = connected();
    QVERIFY(socket);
    const QByteArray login = R"({"username":"Hostile","password":"wrong password"})";
    socket->write(QByteArray(get) +
                  "POST /auth/login HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                  "Content-Length: " +
                  QByteArray::number(login.size()) + "\r\n\r\n" + login + get);
    const QByteArray got = readUntil(*socket, "\"versions\"", 2);
    QCOMPARE(got.count("HTTP/1.1 200"), 2);
    QCOMPARE(got.count("HTTP/1.1 401"), 1);
    QVERIFY(got.indexOf("401") > got.indexOf("200"));
}

void TestBackendHttp::takesBodyInPieces()
{
    const auto socket = connected();
    QVERIFY(socket);
    const QByteArray body = R"({"username":"Hostile","password":"correct horse"})";
    const QByteArray request =
        "POST /auth/login HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
        "Content-Length: " +
        QByteArray::number(body.size()) + "\r\n\r\n" + body;
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    for (const char byte : request) {
        socket->write(&byte, 1);
        socket->flush();
    }
    QVERIFY(readUntil(*socket, "token").startsWith("HTTP/1.1 200"));
}

void TestBackendHttp::givesLeaveToContinue()
{
    const auto socket = connected();
    QVERIFY(socket);
    const QByteArray body = R"({"username":"Hostile","password":"correct horse"})";
    const QByteArray head =
        "POST /auth/login HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
        "Expect: 100-continue\r\nContent-Length: " +
        QByteArray::number(body.size()) + "\r\n\r\n";
    socket->write(head);
    QCOMPARE(readUntil(*socket, "\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
    socket->write(body);
    QVERIFY(readUntil(*socket, "token").startsWith("HTTP/1.1 200"));

    // No leave for what will be refused anyway.
    socket->write("POST /skins/upload HTTP/1.1\r\nHost: x\r\nContent-Type: image/png\r\n"
                  "Expect: 100-continue\r\nContent-Length: 5000\r\n\r\n");
    QVERIFY(readUntil(*socket, "error").startsWith("HTTP/1.1 401"));
}

void TestBackendHttp::refusesLargeBodyBeforeItIsSent()
{
    const RawReply refused =
        send("POST /models/upload HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + m_token +
             "\r\nContent-Type: application/json\r\n"
             "Content-Length: 1000000000000\r\n\r\n");
    QCOMPARE(refused.status, 413);
    QCOMPARE(refused.error(), u"The body is larger than 2048 KiB."_s);
    QCOMPARE(refused.headers.value("connection"), "close");
}

void TestBackendHttp::neverTakesBodyForNextRequest_data()
{
    QTest::addColumn<QByteArray>("fields");
    QTest::addColumn<QByteArray>("status");
    // The body of a refused upload looks like requests of its own.
    QTest::newRow("refused by its operation")
        << QByteArray("Content-Type: image/png\r\nContent-Length: 100000\r\n") << QByteArray("401");
    QTest::newRow("in chunks") << QByteArray("Transfer-Encoding: chunked\r\n") << QByteArray("411");
    QTest::newRow("length without sense")
        << QByteArray("Content-Length: 2x\r\n") << QByteArray("400");
}

void TestBackendHttp::neverTakesBodyForNextRequest()
{
    QFETCH(QByteArray, fields);
    QFETCH(QByteArray, status);
    const auto socket = connected();
    QVERIFY(socket);
    socket->write("POST /skins/upload HTTP/1.1\r\nHost: x\r\n" + fields + "\r\n" +
                  QByteArray(get).repeated(3));
    QVERIFY(waitForClose(*socket, 10000));
    const QByteArray got = socket->readAll();
    QCOMPARE(got.count("HTTP/1.1"), 1);
    QVERIFY2(got.startsWith(QByteArray("HTTP/1.1 " + status)), got.constData());
}

void TestBackendHttp::servesRanges_data()
{
    QTest::addColumn<QByteArray>("range");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("contentRange");
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("bytes");
    const auto row = [](const char* range, int status, const char* contentRange, int offset,
                        int bytes) {
        QTest::newRow(range) << QByteArray(range) << status << QByteArray(contentRange) << offset
                             << bytes;
    };
    row("bytes=0-9", 206, "bytes 0-9/200000", 0, 10);
    row("bytes=199990-", 206, "bytes 199990-199999/200000", 199990, 10);
    row("bytes=-7", 206, "bytes 199993-199999/200000", 199993, 7);
    row("bytes=100000-900000", 206, "bytes 100000-199999/200000", 100000, 100000);
    row("bytes=0-", 200, "", 0, 200000);
    row("bytes=-900000", 200, "", 0, 200000);
    row("bytes=200000-", 416, "bytes */200000", 0, 0);
    row("bytes=-0", 416, "bytes */200000", 0, 0);
    row("bytes=9-3", 200, "", 0, 200000);
    row("bytes=", 200, "", 0, 200000);
    row("bytes=a-b", 200, "", 0, 200000);
    row("bytes 0-9", 200, "", 0, 200000);
    row("bytes=1--2", 200, "", 0, 200000);
    row("lines=0-9", 200, "", 0, 200000);
    row("Bytes=0-9", 206, "bytes 0-9/200000", 0, 10);
    row("bytes=0-1,5-6", 200, "", 0, 200000);
}

void TestBackendHttp::servesRanges()
{
    QFETCH(QByteArray, range);
    QFETCH(int, status);
    QFETCH(QByteArray, contentRange);
    QFETCH(int, offset);
    QFETCH(int, bytes);
    const RawReply reply = raw_http::get(m_backend.port(), m_filePath, {{"Range", range}});
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.headers.value("content-range"), contentRange);
    if (status != 416)
        QCOMPARE(reply.body, m_content.mid(offset, bytes));
}

void TestBackendHttp::honoursIfRange()
{
    const QByteArray etag = raw_http::get(m_backend.port(), m_filePath).headers.value("etag");
    const auto ask = [&](const QByteArray& tag) {
        return raw_http::get(m_backend.port(), m_filePath,
                             {{"Range", "bytes=0-9"}, {"If-Range", tag}})
            .status;
    };
    QCOMPARE(ask(etag), 206);
    QCOMPARE(ask("\"older\""), 200);
}

void TestBackendHttp::answersHead()
{
    for (const QByteArray& path : {QByteArray("/manifest.json"), m_filePath}) {
        const RawReply whole = raw_http::get(m_backend.port(), path);
        const RawReply head =
            send("HEAD " + path + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
        QCOMPARE(head.status, 200);
        QCOMPARE(head.headers.value("content-length"), whole.headers.value("content-length"));
        QCOMPARE(head.headers.value("etag"), whole.headers.value("etag"));
        QVERIFY(head.body.isEmpty());
    }
    QCOMPARE(raw_http::get(m_backend.port(), m_filePath).headers.value("cache-control"),
             "public, max-age=31536000, immutable");
    QCOMPARE(raw_http::get(m_backend.port(), "/manifest.json").headers.value("cache-control"),
             "no-cache");
}

void TestBackendHttp::namesAllowedMethods()
{
    QCOMPARE(send("DELETE /manifest.json HTTP/1.1\r\nHost: x\r\n\r\n").headers.value("allow"),
             "GET, HEAD");
    QCOMPARE(raw_http::get(m_backend.port(), "/auth/login").headers.value("allow"), "POST");
}

void TestBackendHttp::sendsSecurityHeaders()
{
    for (const QByteArray& path :
         {QByteArray("/manifest.json"), QByteArray("/nothing"), m_filePath}) {
        const RawReply reply = raw_http::get(m_backend.port(), path);
        QCOMPARE(reply.headers.value("x-content-type-options"), "nosniff");
        QVERIFY(reply.headers.value("content-security-policy").startsWith("default-src 'none'"));
        QCOMPARE(reply.headers.value("referrer-policy"), "no-referrer");
        QVERIFY(reply.headers.value("date").endsWith(" GMT"));
        QVERIFY(!reply.headers.contains("server"));
    }
    // Nothing that belongs to one person is kept on the way.
    QCOMPARE(raw_http::get(m_backend.port(), "/auth/validate", {raw_http::bearer(m_token)})
                 .headers.value("cache-control"),
             "no-store");
}

void TestBackendHttp::doesNotCompress()
{
    const RawReply reply = raw_http::get(m_backend.port(), "/manifest.json",
                                         {{"Accept-Encoding", "gzip, br, deflate"}});
    QVERIFY(!reply.headers.contains("content-encoding"));
    QVERIFY(reply.json().contains(u"versions"_s));
}

QTEST_GUILESS_MAIN(TestBackendHttp)
#include "tst_backend_http.moc"
