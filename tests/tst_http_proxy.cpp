#include "services/http.h"

#include "tests/support/http_server.h"
#include "tests/support/tls.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QTest>
#include <QTimer>

#include <optional>

using namespace Qt::StringLiterals;

// Bodies that come through a web proxy, from servers that close the connection behind them.
class TestHttpProxy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void takesAllOfABody_data();
    void takesAllOfABody();

private:
    TestAuthority m_authority;
};

void TestHttpProxy::initTestCase()
{
    m_authority.trust();
}

void TestHttpProxy::takesAllOfABody_data()
{
    QTest::addColumn<int>("pause");
    QTest::newRow("at once") << 0;
    // All of it has come by then, and the connection is closed.
    QTest::newRow("after a while") << 200;
}

void TestHttpProxy::takesAllOfABody()
{
    QFETCH(int, pause);
    HttpServer server(m_authority.serverFor({u"files.example"_s}));
    TunnelProxy proxy;
    proxy.lead("files.example:443", server.port());
    const QByteArray sent = QByteArray("0123456789abcdef").repeated(200'000);
    server.answer("/file", HttpAnswer::ok(sent));

    // What gets lost depends on which buffers happen to be full: now and then is often enough.
    for (int i = 0; i < 20; ++i) {
        QNetworkAccessManager network;
        QByteArray body;
        std::optional<http::Answer> answer;
        http::get(&network, QNetworkRequest(QUrl(u"https://files.example/file"_s)),
                  {.context = this,
                   .maxBytes = 2 * sent.size(),
                   .done = [&](const http::Answer& given) { answer = given; },
                   .sink =
                       [&](const QByteArray& piece, const std::function<void()>& next) {
                           const bool isFirst = body.isEmpty();
                           body += piece;
                           QTimer::singleShot(isFirst ? pause : 0, this, next);
                       }});
        QTRY_VERIFY_WITH_TIMEOUT(answer, 15'000);
        QCOMPARE(answer->error, u""_s);
        QVERIFY(body == sent);
    }
}

QTEST_GUILESS_MAIN(TestHttpProxy)
#include "tst_http_proxy.moc"
