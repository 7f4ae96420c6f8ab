#include "services/http.h"
#include "services/sha256.h"
#include "tests/support/bulk_server.h"
#include "tests/support/gzip.h"
#include "tests/support/http_server.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>

#include <ctime>
#include <functional>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 mega = 1024 * 1024;
constexpr qint64 limit = 64 * mega;

QByteArray someBody(qsizetype size)
{
    QByteArray body;
    for (int i = 0; body.size() < size; ++i)
        body += QByteArray::number(i) + ' ';
    return body;
}

QString sha256Of(const QByteArray& bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

// Of this thread.
double processorMs()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return 1e3 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e6;
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

double processorMsOfPooledThreads()
{
    double sum = 0;
    const QDir tasks(u"/proc/self/task"_s);
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString place = tasks.filePath(task);
        if (contentOf(place + u"/comm").startsWith("Thread (pooled)"))
            sum += contentOf(place + u"/schedstat").split(' ').first().toDouble() / 1e6;
    }
    return sum;
}

} // namespace

// Bodies that are looked at or taken away piece by piece.
class TestHttpPieces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The network layer complains about what is done to a reply at the wrong time.
    void init()
    {
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        m_context = std::make_unique<QObject>();
        m_answer.reset();
        m_pieces.clear();
        m_count = 0;
        m_next = {};
    }

    void cleanup() { m_context.reset(); }

    void hashesABody_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QByteArray>("body");
        const QByteArray body = someBody(3 * mega);
        HttpAnswer answer = HttpAnswer::ok(body);
        QTest::newRow("with a length") << answer << body;
        answer.framing = HttpAnswer::Framing::Chunked;
        QTest::newRow("chunked") << answer << body;
        answer.framing = HttpAnswer::Framing::UntilClose;
        QTest::newRow("until the connection closes") << answer << body;
        QTest::newRow("compressed")
            << HttpAnswer::ok(gzip(body)).addHeader("Content-Encoding", "gzip") << body;
        QTest::newRow("empty") << HttpAnswer::ok({}) << QByteArray();
    }

    void hashesABody()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QByteArray, body);
        http::Exchange exchange = prepared();
        exchange.hashes = true;
        get(answer, std::move(exchange));
        QTRY_VERIFY(m_answer);
        QCOMPARE(m_answer->error, QString());
        QCOMPARE(m_answer->body, body);
        QCOMPARE(m_answer->sha256, sha256Of(body));
    }

    void hashesOnlyWhatIsASuccess()
    {
        HttpAnswer answer = HttpAnswer::ok(someBody(mega));
        answer.cutAfter = mega / 2;
        http::Exchange exchange = prepared();
        exchange.hashes = true;
        get(answer, std::move(exchange));
        QTRY_VERIFY(m_answer);
        QCOMPARE(m_answer->error, u"Connection closed"_s);
        QCOMPARE(m_answer->sha256, QString());
        get(HttpAnswer::ok("little"), prepared());
        QTRY_COMPARE(m_answer->body, QByteArray("little"));
        QCOMPARE(m_answer->sha256, QString());
    }

    void hashesBesideTheEventLoop()
    {
        const QByteArray same(limit, 'x');
        const double before = processorMs();
        (void)Sha256::of(same);
        const double hashing = processorMs() - before;
        const BulkServer server(limit);
        double pooled = 0;
        http::Exchange exchange = prepared();
        exchange.hashes = true;
        exchange.done = [&](const http::Answer& answer) {
            pooled = processorMsOfPooledThreads();
            m_answer = answer;
        };
        http::get(&m_network, QNetworkRequest(QUrl(server.url())), std::move(exchange));
        QTRY_VERIFY_WITH_TIMEOUT(m_answer, 20'000);
        QCOMPARE(m_answer->sha256, Sha256::of(same));
        qInfo("%.0f ms; by itself %.0f ms", pooled, hashing);
        QVERIFY(pooled > hashing / 2);
    }

    void waitsForTheHashOfAContextThatEnds()
    {
        BulkServer server(limit);
        server.stallAtHalf(true);
        http::Exchange exchange = prepared();
        exchange.hashes = true;
        http::get(&m_network, QNetworkRequest(QUrl(server.url())), std::move(exchange));
        QTRY_VERIFY(server.isStalled());
        m_context.reset();
        QTest::qWait(100);
        QVERIFY(!m_answer);
    }

    // What is given to it may end all of it.
    void endsItselfFromItsAnswer()
    {
        auto network = std::make_unique<QNetworkAccessManager>();
        m_server.answer("/file", HttpAnswer::ok(someBody(3 * mega)));
        http::Exchange exchange = prepared();
        exchange.hashes = true;
        exchange.done = [this, &network](const http::Answer& answer) {
            m_answer = answer;
            m_context.reset();
            network.reset();
        };
        http::get(network.get(), QNetworkRequest(QUrl(m_server.url(u"/file"_s))),
                  std::move(exchange));
        QTRY_VERIFY(m_answer);
        QCoreApplication::processEvents();
        QCOMPARE(m_answer->sha256.size(), 64);
    }

    void handsThePiecesOverOneAtATime_data() { hashesABody_data(); }

    void handsThePiecesOverOneAtATime()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QByteArray, body);
        get(answer, sinking([this](const std::function<void()>& next) {
                QTimer::singleShot(1, m_context.get(), next);
            }));
        QTRY_VERIFY_WITH_TIMEOUT(m_answer, 20'000);
        QCOMPARE(m_answer->error, QString());
        QVERIFY(m_answer->body.isEmpty());
        QCOMPARE(m_pieces, body);
        QVERIFY(body.isEmpty() || m_count > 1);
        QVERIFY(!m_isAtWork);
    }

    // Its memory is bounded by what the system's own buffers hold.
    void holdsBackTheServer()
    {
        const BulkServer server(limit);
        qint64 received = 0;
        http::Exchange exchange =
            sinking([this](const std::function<void()>& next) { m_next = next; });
        exchange.progress = [&received](qint64 bytes, qint64) { received = bytes; };
        http::get(&m_network, QNetworkRequest(QUrl(server.url())), std::move(exchange));
        QTRY_COMPARE(m_count, 1);
        QTest::qWait(500);
        QCOMPARE(m_count, 1);
        QVERIFY2(received < 4 * mega, qPrintable(QString::number(received)));
        QVERIFY(!m_answer);
        m_next();
        QTRY_COMPARE(m_count, 2);
    }

    // The last piece is still at work when the network layer has finished.
    void waitsForTheLastPiece()
    {
        get(HttpAnswer::ok("little"),
            sinking([this](const std::function<void()>& next) { m_next = next; }));
        QTRY_COMPARE(m_pieces, QByteArray("little"));
        QTest::qWait(100);
        QVERIFY(!m_answer);
        m_isAtWork = false;
        m_next();
        QTRY_VERIFY(m_answer);
        QCOMPARE(m_answer->error, QString());
    }

    void doesNotWaitForASinkOnceItHasFailed()
    {
        HttpAnswer answer = HttpAnswer::ok(someBody(mega));
        answer.cutAfter = mega / 2;
        get(answer, sinking([this](const std::function<void()>& next) { m_next = next; }));
        QTRY_VERIFY(m_answer);
        QCOMPARE(m_answer->error, u"Connection closed"_s);
        m_isAtWork = false;
        m_next(); // too late, and harmless
        QCoreApplication::processEvents();
        QCOMPARE(m_count, 1);
    }

    void forgetsASinkWhoseContextEnds()
    {
        get(HttpAnswer::ok(someBody(mega)),
            sinking([this](const std::function<void()>& next) { m_next = next; }));
        QTRY_COMPARE(m_count, 1);
        m_context.reset();
        m_next();
        QTest::qWait(100);
        m_next();
        QCOMPARE(m_count, 1);
        QVERIFY(!m_answer);
    }

private:
    http::Exchange prepared()
    {
        return {.context = m_context.get(),
                .maxBytes = limit,
                .done = [this](const http::Answer& answer) { m_answer = answer; },
                .isWhole = &http::isCheckedLater};
    }

    // A sink that keeps the pieces and leaves it to `handle` when the next one may come.
    http::Exchange sinking(const std::function<void(const std::function<void()>&)>& handle)
    {
        http::Exchange exchange = prepared();
        m_isAtWork = false;
        exchange.sink = [this, handle](const QByteArray& piece, const std::function<void()>& next) {
            QVERIFY(!m_isAtWork);
            QVERIFY(!piece.isEmpty());
            m_isAtWork = true;
            ++m_count;
            m_pieces.append(piece);
            handle([this, next] {
                m_isAtWork = false;
                next();
            });
        };
        return exchange;
    }

    void get(const HttpAnswer& answer, http::Exchange exchange)
    {
        m_server.answer("/file", answer);
        http::get(&m_network, QNetworkRequest(QUrl(m_server.url(u"/file"_s))), std::move(exchange));
    }

    HttpServer m_server;
    QNetworkAccessManager m_network;
    std::unique_ptr<QObject> m_context;
    std::optional<http::Answer> m_answer;
    QByteArray m_pieces;
    int m_count = 0;
    bool m_isAtWork = false;
    std::function<void()> m_next;
};

QTEST_GUILESS_MAIN(TestHttpPieces)
#include "tst_http_pieces.moc"
