#include "services/http.h"
#include "tests/support/http_server.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSignalSpy>
#include <QTest>

#include <zlib.h>

namespace {

constexpr qint64 limit = 1024 * 1024;

QByteArray gzip(const QByteArray& content)
{
    z_stream stream{};
    const int windowBits = 15 + 16; // gzip's header and trailer
    if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return {};
    QByteArray packed(static_cast<qsizetype>(deflateBound(&stream, content.size())), '\0');
    QByteArray input = content;
    stream.next_in = reinterpret_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.truncate(static_cast<qsizetype>(stream.total_out));
    deflateEnd(&stream);
    return packed;
}

} // namespace

class TestHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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
        const Result result = fetch(answer);
        QCOMPARE(result.error, QString());
        QCOMPARE(result.body, QByteArray("0123456789"));
    }

    void takesBodyOfExactlyTheLimit()
    {
        const Result result = fetch(HttpAnswer::ok(QByteArray(limit, 'x')));
        QCOMPARE(result.error, QString());
        QCOMPARE(result.body.size(), limit);
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
        const Result result = fetch(answer);
        QVERIFY(!result.error.isEmpty() || result.body == "0123");
    }

    void reportsPartNobodyAskedFor()
    {
        HttpAnswer answer = HttpAnswer::ok("0123456789");
        answer.status = 206;
        answer.addHeader("Content-Range", "bytes 0-9/20");
        QCOMPARE(fetch(answer).error, QStringLiteral("The server sent only a part of the file"));
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
    }

    void stopsBodiesOverTheLimit()
    {
        QFETCH(HttpAnswer, answer);
        const Result result = fetch(answer);
        QCOMPARE(result.error, QStringLiteral("The server sent more than 1 MB"));
        // Whatever the server would still send, the process never holds much of it.
        QVERIFY2(result.peak < 16 * limit, qPrintable(QString::number(result.peak)));
    }

    void prefersTheNetworkLayersText()
    {
        const Result result = fetch(HttpAnswer::htmlError(500));
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
        const auto reply = finishedReply(HttpAnswer::json(body, 400));
        QVERIFY(!reply->errorString().isEmpty());
        QCOMPARE(http::accountErrorText(reply.get(), reply->readAll()),
                 expected.isEmpty() ? reply->errorString() : expected);
    }

    void sendsTheToken()
    {
        QNetworkRequest request;
        http::setBearerToken(request, QStringLiteral("tök"));
        QCOMPARE(request.rawHeader("Authorization"), QByteArray("Bearer t\xc3\xb6k"));
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
    struct Result
    {
        QString error;
        QByteArray body;
        qint64 peak = 0;
    };

    std::unique_ptr<QNetworkReply> send(const HttpAnswer& answer)
    {
        m_server.answer("/file", answer);
        const QNetworkRequest request{QUrl(m_server.url(QStringLiteral("/file")))};
        return std::unique_ptr<QNetworkReply>(m_network.get(request));
    }

    std::unique_ptr<QNetworkReply> finishedReply(const HttpAnswer& answer)
    {
        auto reply = send(answer);
        if (!reply->isFinished())
            QSignalSpy(reply.get(), &QNetworkReply::finished).wait();
        return reply;
    }

    Result fetch(const HttpAnswer& answer)
    {
        Result result;
        const auto reply = send(answer);
        http::limitBody(reply.get(), limit);
        connect(reply.get(), &QNetworkReply::readyRead, reply.get(), [&result, r = reply.get()] {
            result.peak = std::max(result.peak, r->bytesAvailable());
        });
        if (!reply->isFinished())
            QSignalSpy(reply.get(), &QNetworkReply::finished).wait(20'000);
        result.body = reply->readAll();
        result.error = reply->isFinished() ? http::errorText(reply.get(), result.body.size())
                                           : QStringLiteral("never finished");
        return result;
    }

    HttpServer m_server;
    QNetworkAccessManager m_network;
};

QTEST_GUILESS_MAIN(TestHttp)
#include "tst_http.moc"
