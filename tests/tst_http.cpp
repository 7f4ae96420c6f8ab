#include "services/http.h"
#include "tests/support/costs.h"
#include "tests/support/gzip.h"
#include "tests/support/http_server.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QThread>

#include <atomic>
#include <memory>
#include <utility>

namespace {

constexpr qint64 limit = 1024 * 1024;
const auto mayBeCut = QStringLiteral("The server's compressed answer may be cut");

// A server in a thread of its own: an endless body, until its client takes nothing for a while.
void sendMuch(std::atomic<qint64>& sent, std::atomic<quint16>& port)
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost))
        qFatal("no loopback port");
    port = server.serverPort();
    if (!server.waitForNewConnection(20'000))
        return;
    QTcpSocket* socket = server.nextPendingConnection();
    socket->waitForReadyRead(20'000);
    socket->write("HTTP/1.1 200 OK\r\n\r\n");
    const QByteArray piece(256 * 1024, 'x');
    while (sent < 256 * limit) {
        socket->write(piece);
        while (socket->bytesToWrite() > 0) {
            if (!socket->waitForBytesWritten(1000))
                return;
        }
        sent += piece.size();
    }
}

} // namespace

class TestHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The network layer complains about what is done to a reply at the wrong time.
    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral(".*"))); }

    void takesWholeBodies_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        HttpAnswer answer = HttpAnswer::ok("0123456789");
        QTest::newRow("with a length") << answer;
        answer.framing = HttpAnswer::Framing::Chunked;
        QTest::newRow("chunked") << answer;
        answer.framing = HttpAnswer::Framing::UntilClose;
        QTest::newRow("until the connection closes") << answer;
        HttpAnswer packed = HttpAnswer::ok(gzip("0123456789"));
        packed.addHeader("Content-Encoding", "gzip");
        QTest::newRow("compressed") << packed;
    }

    void takesWholeBodies()
    {
        QFETCH(HttpAnswer, answer);
        const http::Answer result = fetch(answer);
        QCOMPARE(result.error, QString());
        QCOMPARE(result.body, QByteArray("0123456789"));
    }

    void takesBodyOfExactlyTheLimit()
    {
        const http::Answer result = fetch(HttpAnswer::ok(QByteArray(limit, 'x')));
        QCOMPARE(result.error, QString());
        QCOMPARE(result.body.size(), limit);
    }

    // All of it is there at once, more than is copied at once, when its end is already known.
    void takesCompressedBodiesThatUnpackToMuch()
    {
        HttpAnswer answer = HttpAnswer::ok(gzip(QByteArray(9 * limit, 'x')));
        answer.addHeader("Content-Encoding", "gzip");
        m_server.answer("/file", answer);
        QList<qsizetype> sizes;
        http::get(&m_network, QNetworkRequest{QUrl(m_server.url(QStringLiteral("/file")))},
                  {.context = this,
                   .maxBytes = 16 * limit,
                   .done = [&sizes](const http::Answer& taken) { sizes << taken.body.size(); },
                   .isWhole = &http::isCheckedLater});
        QTRY_COMPARE(sizes, QList<qsizetype>{9 * limit});
    }

    void tellsWhatIsNotThere()
    {
        QVERIFY(!fetch(HttpAnswer::ok("x")).notFound);
        QVERIFY(fetch(HttpAnswer::htmlError(404)).notFound);
        for (const int status : {403, 410, 500})
            QVERIFY(!fetch(HttpAnswer::htmlError(status)).notFound);
    }

    void reportsShortBodies_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        HttpAnswer answer = HttpAnswer::ok("0123456789");
        answer.cutAfter = 4;
        QTest::newRow("closed early") << answer;
        answer = HttpAnswer::ok("0123456789");
        answer.announcedLength = 11;
        QTest::newRow("announces more than it sends") << answer;
    }

    void reportsShortBodies()
    {
        QFETCH(HttpAnswer, answer);
        QVERIFY(!fetch(answer).error.isEmpty());
    }

    // The network layer is content with these.
    void reportsBodiesOfAnotherLength_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        HttpAnswer answer = HttpAnswer::ok("0123456789");
        answer.framing = HttpAnswer::Framing::Chunked;
        answer.addHeader("Content-Length", "20");
        QTest::newRow("chunked, with a length") << answer;
        answer = HttpAnswer::ok("");
        answer.status = 204;
        answer.announcedLength = 10;
        QTest::newRow("no content, with a length") << answer;
    }

    void reportsBodiesOfAnotherLength()
    {
        QFETCH(HttpAnswer, answer);
        QCOMPARE(fetch(answer).error, QStringLiteral("The server closed the connection early"));
    }

    // The network layer drops what exceeds the announced length, so what arrives is "as announced".
    void neverReadsPastTheAnnouncedLength()
    {
        HttpAnswer answer = HttpAnswer::ok("0123456789");
        answer.announcedLength = 4;
        const http::Answer result = fetch(answer);
        QVERIFY(!result.error.isEmpty() || result.body == "0123");
    }

    void takesARangeThatIsTheWhole_data()
    {
        QTest::addColumn<QByteArray>("range");
        QTest::addColumn<bool>("whole");
        QTest::newRow("all of it") << QByteArray("bytes 0-9/10") << true;
        QTest::newRow("the first half") << QByteArray("bytes 0-9/20") << false;
        QTest::newRow("the second half") << QByteArray("bytes 10-19/20") << false;
        QTest::newRow("of unknown size") << QByteArray("bytes 0-9/*") << false;
        QTest::newRow("more than it sent") << QByteArray("bytes 0-10/11") << false;
        QTest::newRow("less than it sent") << QByteArray("bytes 0-8/9") << false;
        QTest::newRow("not up to the end") << QByteArray("bytes 0-8/10") << false;
        QTest::newRow("other units") << QByteArray("lines 0-9/10") << false;
        QTest::newRow("two ranges") << QByteArray("bytes 0-9/10, bytes 0-9/10") << false;
        QTest::newRow("too large a number")
            << QByteArray("bytes 0-18446744073709551625/18446744073709551626") << false;
        QTest::newRow("no range") << QByteArray() << false;
    }

    void takesARangeThatIsTheWhole()
    {
        QFETCH(QByteArray, range);
        QFETCH(bool, whole);
        HttpAnswer answer = HttpAnswer::ok("0123456789");
        answer.status = 206;
        if (!range.isEmpty())
            answer.addHeader("Content-Range", range);
        QCOMPARE(fetch(answer).error,
                 whole ? QString() : QStringLiteral("The server sent only a part of the file"));
    }

    void takesACompressedRangeThatIsTheWhole()
    {
        HttpAnswer answer = HttpAnswer::ok(gzip("0123456789"));
        answer.status = 206;
        answer.addHeader("Content-Encoding", "gzip");
        // The range counts what is sent, not what is unpacked from it.
        const QByteArray size = QByteArray::number(answer.body.size());
        const QByteArray last = QByteArray::number(answer.body.size() - 1);
        answer.addHeader("Content-Range", "bytes 0-" + last + '/' + size);
        const http::Answer result = fetch(answer);
        QCOMPARE(result.error, QString());
        QCOMPARE(result.body, QByteArray("0123456789"));
    }

    void takesAChunkedRangeThatIsTheWhole()
    {
        HttpAnswer answer = HttpAnswer::ok("0123456789");
        answer.status = 206;
        answer.framing = HttpAnswer::Framing::Chunked;
        answer.addHeader("Content-Range", "bytes 0-9/10");
        QCOMPARE(fetch(answer).error, QString());
    }

    // The network layer calls all of these a success.
    void refusesWhatIsNoAnswer_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QString>("error");
        HttpAnswer answer;
        answer.status = 304;
        answer.framing = HttpAnswer::Framing::UntilClose;
        const auto unchanged = QStringLiteral("The server says that nothing has changed");
        QTest::newRow("not modified") << answer << unchanged;
        answer.framing = HttpAnswer::Framing::Length;
        answer.announcedLength = 10;
        QTest::newRow("not modified, with a length") << answer << unchanged;
        for (const int status : {101, 199, 300, 306}) {
            answer = HttpAnswer::ok("x");
            answer.status = status;
            QTest::addRow("status %d", status)
                << answer << QStringLiteral("The server's answer cannot be used");
        }
        const auto impossible = QStringLiteral("The server announced an impossible length");
        answer = HttpAnswer::ok("0123456789");
        answer.announcedLength = -5;
        QTest::newRow("negative length") << answer << impossible;
        for (const char* length : {"ten", "10, 11", "99999999999999999999999", "0x0a"}) {
            answer = HttpAnswer::ok("0123456789");
            answer.framing = HttpAnswer::Framing::UntilClose;
            answer.addHeader("Content-Length", length);
            QTest::addRow("length \"%s\"", length) << answer << impossible;
        }
        HttpAnswer packed = HttpAnswer::ok(gzip("0123456789"));
        packed.addHeader("Content-Encoding", "gzip");
        packed.announcedLength = -5;
        QTest::newRow("negative length, compressed") << packed << impossible;
    }

    void refusesWhatIsNoAnswer()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QString, error);
        const http::Answer taken = fetch(answer);
        // Some of these the later versions of the network layer refuse by themselves.
        QVERIFY2(taken.error == error || taken.error == QStringLiteral("Connection closed"),
                 qPrintable(taken.error));
    }

    void takesNothingCompressedToNothing()
    {
        HttpAnswer answer = HttpAnswer::ok({});
        answer.addHeader("Content-Encoding", "gzip");
        QCOMPARE(fetch(answer, nullptr).error, QString());
    }

    // So it needs no mark of its end.
    void takesIdentityForNoCompression()
    {
        for (const char* encoding : {"identity", "Identity"}) {
            HttpAnswer answer = HttpAnswer::ok("0123456789");
            answer.addHeader("Content-Encoding", encoding);
            QCOMPARE(fetch(answer, nullptr).error, QString());
        }
    }

    void takesALengthThatIsSaidTwice()
    {
        HttpAnswer answer = HttpAnswer::ok("0123456789");
        answer.addHeader("Content-Length", "10");
        QCOMPARE(fetch(answer).error, QString());
    }

    // Cut anywhere, its trailer included, such a body arrives as a success of the network layer.
    void refusesCompressedBodiesThatMayBeCut_data()
    {
        QTest::addColumn<HttpAnswer::Framing>("framing");
        QTest::newRow("with a length") << HttpAnswer::Framing::Length;
        QTest::newRow("chunked") << HttpAnswer::Framing::Chunked;
        QTest::newRow("until the connection closes") << HttpAnswer::Framing::UntilClose;
    }

    void refusesCompressedBodiesThatMayBeCut()
    {
        QFETCH(HttpAnswer::Framing, framing);
        const QByteArray content = R"({"error":"no","reasons":[1,2,3]})";
        HttpAnswer answer = HttpAnswer::ok(gzip(content));
        answer.framing = framing;
        answer.addHeader("Content-Encoding", "gzip");
        const http::Answer whole = fetch(answer, &http::isJson);
        QCOMPARE(whole.error, QString());
        QCOMPARE(whole.body, content);
        QCOMPARE(fetch(answer, nullptr).error, mayBeCut);
        for (qsizetype cut = 0; cut < answer.body.size(); ++cut) {
            answer.cutAfter = cut;
            QVERIFY(!fetch(answer, nullptr).error.isEmpty());
            // Nothing is missing of the content when only the trailer is.
            const http::Answer taken = fetch(answer, &http::isJson);
            QVERIFY2(!taken.error.isEmpty() || taken.body == content,
                     qPrintable(QString::number(cut)));
        }
    }

    void refusesRedirects_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("elsewhere");
        for (const int status : {301, 302, 303, 307, 308}) {
            QTest::addRow("%d at its origin", status) << status << false;
            QTest::addRow("%d to another server", status) << status << true;
        }
    }

    void refusesRedirects()
    {
        QFETCH(int, status);
        QFETCH(bool, elsewhere);
        HttpServer other;
        other.answer("/page", HttpAnswer::ok("thanks"));
        m_server.answer("/page", HttpAnswer::ok("thanks"));
        m_server.forgetRequests();
        HttpAnswer redirect = HttpAnswer::redirect(
            (elsewhere ? other : m_server).url(QStringLiteral("/page")), status);
        m_server.answer("/file", redirect);
        QNetworkRequest request{QUrl(m_server.url(QStringLiteral("/file")))};
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain"));
        http::setBearerToken(request, QStringLiteral("secret"));
        http::refuseRedirects(request);
        QStringList errors;
        http::post(&m_network, request, "body",
                   {.context = this,
                    .maxBytes = limit,
                    .done = [&errors](const http::Answer& answer) { errors << answer.error; }});
        QTRY_COMPARE(errors.size(), 1);
        QVERIFY(!errors.first().isEmpty());
        QCOMPARE(m_server.requests().size(), 1);
        QVERIFY(other.requests().isEmpty());
    }

    // Six silent requests hold all the connections to a host that there are.
    void freesTheConnectionsOfAContextThatEnds()
    {
        m_server.answer("/silent", HttpAnswer::silence());
        auto context = std::make_unique<QObject>();
        int answers = 0;
        for (int i = 0; i < 12; ++i)
            http::get(&m_network, QNetworkRequest{QUrl(m_server.url(QStringLiteral("/silent")))},
                      {.context = context.get(),
                       .maxBytes = limit,
                       .done = [&answers](const http::Answer&) { ++answers; }});
        QTRY_COMPARE(m_server.requestCount("/silent"), 6);
        context.reset();
        // All six are free again: the next six get through, to wait in their turn.
        m_server.answer("/next", HttpAnswer::silence());
        QObject next;
        for (int i = 0; i < 6; ++i)
            http::get(&m_network, QNetworkRequest{QUrl(m_server.url(QStringLiteral("/next")))},
                      {.context = &next, .maxBytes = limit, .done = [](const http::Answer&) {}});
        QTRY_COMPARE(m_server.requestCount("/next"), 6);
        QCOMPARE(answers, 0);
        QCOMPARE(m_network.findChildren<QNetworkReply*>().size(), 6);
    }

    void letsTheContextEndAnywhere_data()
    {
        QTest::addColumn<bool>("inProgress");
        QTest::newRow("while it reports progress") << true;
        QTest::newRow("in its answer") << false;
    }

    void letsTheContextEndAnywhere()
    {
        QFETCH(bool, inProgress);
        m_server.answer("/file", HttpAnswer::ok(QByteArray(limit, 'x')));
        auto context = std::make_unique<QObject>();
        int answers = 0;
        http::Exchange exchange{
            .context = context.get(), .maxBytes = limit, .done = [&](const http::Answer&) {
                ++answers;
                context.reset();
            }};
        int calls = 0;
        if (inProgress)
            exchange.progress = [&context, &calls, kept = std::make_shared<int>(1)](qint64,
                                                                                    qint64) {
                context.reset();
                calls += *kept; // what is called outlives what it ends
            };
        http::get(&m_network, QNetworkRequest{QUrl(m_server.url(QStringLiteral("/file")))},
                  std::move(exchange));
        QTRY_VERIFY(m_network.findChildren<QNetworkReply*>().isEmpty());
        QVERIFY(!context);
        QCOMPARE(answers, inProgress ? 0 : 1);
    }

    // The refusal is on its way, and nobody is left to hear it.
    void dropsARefusalWhoseContextEnds()
    {
        HttpAnswer answer = HttpAnswer::ok("little");
        answer.announcedLength = limit + 1;
        answer.stallAfter = 0;
        m_server.answer("/file", answer);
        auto context = std::make_unique<QObject>();
        int answers = 0;
        http::get(&m_network, QNetworkRequest{QUrl(m_server.url(QStringLiteral("/file")))},
                  {.context = context.get(),
                   .maxBytes = limit,
                   .done = [&answers](const http::Answer&) { ++answers; }});
        const auto* reply = m_network.findChild<QNetworkReply*>();
        connect(reply, &QNetworkReply::metaDataChanged, this, [&context] { context.reset(); });
        QTRY_VERIFY(m_network.findChildren<QNetworkReply*>().isEmpty());
        QVERIFY(!context);
        QCOMPARE(answers, 0);
    }

    // Though the context goes on.
    void freesTheConnectionOfWhatItRefuses()
    {
        HttpServer server; // which no earlier test left connections to
        HttpAnswer answer = HttpAnswer::ok("little");
        answer.announcedLength = limit + 1;
        answer.stallAfter = 0;
        server.answer("/file", answer);
        QStringList errors;
        http::get(&m_network, QNetworkRequest{QUrl(server.url(QStringLiteral("/file")))},
                  {.context = this,
                   .maxBytes = limit,
                   .done = [&errors](const http::Answer& taken) { errors << taken.error; }});
        QTRY_COMPARE(errors, QStringList{QStringLiteral("The server sent more than 1 MB")});
        QTRY_VERIFY(m_network.findChildren<QNetworkReply*>().isEmpty());
        QTRY_COMPARE(server.connectionCount(), 0);
    }

    // Such a reply has failed but not finished; to abort it as well draws a complaint.
    void endsWhenABombOutlivesItsContext()
    {
        HttpAnswer bomb = HttpAnswer::ok(gzip(QByteArray(64 * limit, ' ')));
        bomb.addHeader("Content-Encoding", "gzip");
        bomb.framing = HttpAnswer::Framing::Chunked;
        bomb.stallAfter = bomb.body.size();
        m_server.answer("/file", bomb);
        auto context = std::make_unique<QObject>();
        int answers = 0;
        http::get(&m_network, QNetworkRequest{QUrl(m_server.url(QStringLiteral("/file")))},
                  {.context = context.get(),
                   .maxBytes = limit,
                   .done = [&answers](const http::Answer&) { ++answers; }});
        const auto* reply = m_network.findChild<QNetworkReply*>();
        connect(reply, &QNetworkReply::errorOccurred, this, [&context] { context.reset(); });
        QTRY_VERIFY(m_network.findChildren<QNetworkReply*>().isEmpty());
        QCOMPARE(answers, 0);
    }

    // What comes meanwhile waits at the server, not in this process.
    void holdsLittleWhileTheWindowIsBusy()
    {
        std::atomic<qint64> sent = 0;
        std::atomic<quint16> port = 0;
        const std::unique_ptr<QThread> server(
            QThread::create([&sent, &port] { sendMuch(sent, port); }));
        server->start();
        QTRY_VERIFY(port > 0);
        QObject context;
        http::get(&m_network,
                  QNetworkRequest{QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(port.load()))},
                  {.context = &context, .maxBytes = 1024 * limit, .done = [](const auto&) {}});
        QTRY_VERIFY(sent > 0);
        server->wait(); // until nobody takes anything any more
        QVERIFY2(sent < 64 * limit, qPrintable(QString::number(sent)));
    }

    void stopsBodiesOverTheLimit_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        HttpAnswer answer = HttpAnswer::ok(QByteArray(limit + 1, 'x'));
        QTest::newRow("with a length") << answer;
        answer.framing = HttpAnswer::Framing::UntilClose;
        QTest::newRow("until the connection closes") << answer;
        answer.framing = HttpAnswer::Framing::Chunked;
        QTest::newRow("chunked") << answer;
        answer.framing = HttpAnswer::Framing::UntilClose;
        answer.body = QByteArray(64 * 1024, 'x');
        answer.endless = true;
        QTest::newRow("endless") << answer;
        HttpAnswer announced = HttpAnswer::ok("little");
        announced.announcedLength = limit + 1;
        announced.stallAfter = 0;
        QTest::newRow("announced, before it comes") << announced;
        HttpAnswer packed = HttpAnswer::ok(gzip(QByteArray(8 * limit, 'x')));
        packed.addHeader("Content-Encoding", "gzip");
        QTest::newRow("compressed") << packed;
        packed.framing = HttpAnswer::Framing::Chunked;
        QTest::newRow("compressed and chunked") << packed;
    }

    // The network layer gives up on it, but does not say that it has finished.
    void endsWithABombThatIsChunked()
    {
        HttpAnswer bomb = HttpAnswer::ok(gzip(QByteArray(64 * limit, ' ')));
        bomb.addHeader("Content-Encoding", "gzip");
        bomb.framing = HttpAnswer::Framing::Chunked;
        bomb.stallAfter = bomb.body.size();
        const http::Answer taken = fetch(bomb);
        QVERIFY2(taken.error.contains(u"more than 1 MB") ||
                     taken.error.contains(u"Decompression failed"),
                 qPrintable(taken.error));
    }

    void stopsBodiesOverTheLimit()
    {
        QFETCH(HttpAnswer, answer);
        const qint64 before = costs::peakBytes();
        const http::Answer result = fetch(answer);
        QCOMPARE(result.error, QStringLiteral("The server sent more than 1 MB"));
        QVERIFY(result.body.isEmpty());
        // Whatever the server would still send, the process never holds much of it.
        const qint64 held = costs::peakBytes() - before;
        QVERIFY2(held < 32 * limit, qPrintable(QString::number(held)));
    }

    void prefersTheNetworkLayersText()
    {
        const http::Answer result = fetch(HttpAnswer::htmlError(500));
        QVERIFY(result.error.contains(u"server replied"));
    }

    void readsTheAccountServersText_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("expected"); // empty: the network layer's
        QTest::newRow("an error") << QByteArray(R"({"error":"Name taken"})")
                                  << QStringLiteral("Name taken");
        QTest::newRow("empty error") << QByteArray(R"({"error":""})") << QString();
        QTest::newRow("error is a number") << QByteArray(R"({"error":5})") << QString();
        QTest::newRow("an array") << QByteArray(R"(["error"])") << QString();
        QTest::newRow("HTML") << QByteArray("<h1>error</h1>") << QString();
        QTest::newRow("nothing") << QByteArray() << QString();
    }

    void readsTheAccountServersText()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, expected);
        const http::Answer answer = fetch(HttpAnswer::json(body, 400));
        QVERIFY(answer.error.contains(u"server replied"));
        QCOMPARE(http::accountErrorText(answer), expected.isEmpty() ? answer.error : expected);
    }

    void sendsTheToken()
    {
        QNetworkRequest request;
        http::setBearerToken(request, QStringLiteral("tök"));
        QCOMPARE(request.rawHeader("Authorization"), QByteArray("Bearer t\xc3\xb6k"));
        http::setBearerToken(request, QStringLiteral("t k"));
        QCOMPARE(request.rawHeader("Authorization"), QByteArray("Bearer t k"));
        http::setBearerToken(request, QString());
        // Blanks at its end are no part of a field's value, and newer Qt drops them.
        QCOMPARE(request.rawHeader("Authorization").trimmed(), QByteArray("Bearer"));
    }

    void writesNoHeadersThatATokenHolds_data()
    {
        QTest::addColumn<QString>("token");
        QTest::newRow("a line break") << QStringLiteral("t\r\nX-Own: 1");
        QTest::newRow("a line feed") << QStringLiteral("t\nX-Own: 1");
        QTest::newRow("a carriage return") << QStringLiteral("t\rX-Own: 1");
        QTest::newRow("a second request") << QStringLiteral("t\r\n\r\nGET /own HTTP/1.1\r\n\r\n");
        QTest::newRow("the last of the controls") << QStringLiteral("t\x1fx");
        QTest::newRow("a NUL") << QString(QStringLiteral("t") + QChar(0) + u'x');
        QTest::newRow("a DEL") << QStringLiteral("t\x7fx");
    }

    void writesNoHeadersThatATokenHolds()
    {
        QFETCH(QString, token);
        m_server.forgetRequests();
        m_server.answer("/file", HttpAnswer::ok("x"));
        QNetworkRequest request{QUrl(m_server.url(QStringLiteral("/file")))};
        http::setBearerToken(request, token);
        bool answered = false;
        http::get(&m_network, request,
                  {.context = this, .maxBytes = limit, .done = [&answered](const http::Answer&) {
                       answered = true;
                   }});
        QTRY_VERIFY(answered);
        QCOMPARE(m_server.requests().size(), 1);
        QCOMPARE(m_server.requests().first().header("Authorization").trimmed(),
                 QByteArray("Bearer"));
        QVERIFY(m_server.requests().first().header("X-Own").isNull());
    }

    void keepsTheTokenFromOtherServers()
    {
        HttpServer other;
        other.answer("/", HttpAnswer::ok("thanks"));
        m_server.answer("/file", HttpAnswer::redirect(other.url(QStringLiteral("/"))));
        QNetworkRequest request{QUrl(m_server.url(QStringLiteral("/file")))};
        http::setBearerToken(request, QStringLiteral("secret"));
        const std::unique_ptr<QNetworkReply> reply(m_network.get(request));
        QTRY_VERIFY(reply->isFinished());
        QCOMPARE(reply->error(), QNetworkReply::InsecureRedirectError);
        QVERIFY(other.requests().isEmpty());
    }

private:
    http::Answer fetch(const HttpAnswer& answer,
                       bool (*isWhole)(const QByteArray&) = &http::isCheckedLater)
    {
        m_server.answer("/file", answer);
        const QNetworkRequest request{QUrl(m_server.url(QStringLiteral("/file")))};
        http::Answer result{{}, QStringLiteral("never answered"), false};
        int answers = 0;
        QObject context;
        http::Exchange exchange{
            .context = &context, .maxBytes = limit, .done = [&](const http::Answer& taken) {
                result = taken;
                ++answers;
            }};
        if (isWhole)
            exchange.isWhole = isWhole;
        http::get(&m_network, request, std::move(exchange));
        (void)QTest::qWaitFor([&] { return answers > 0; }, 20'000);
        QCoreApplication::processEvents();
        return answers == 1 ? result : http::Answer{{}, QStringLiteral("not once"), false};
    }

    HttpServer m_server;
    QNetworkAccessManager m_network;
};

QTEST_GUILESS_MAIN(TestHttp)
#include "tst_http.moc"
