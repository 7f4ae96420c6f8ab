#include "services/http.h"
#include "services/upload_body.h"
#include "tests/support/costs.h"
#include "tests/support/heartbeat.h"
#include "tests/support/http_server.h"

#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <functional>
#include <memory>

namespace {

constexpr qint64 mega = 1024 * 1024;

// A server that counts a body and keeps nothing of it.
class Sink : public QTcpServer
{
public:
    Sink()
    {
        if (!listen(QHostAddress::LocalHost))
            qFatal("no loopback port");
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* socket = nextPendingConnection();
            socket->setReadBufferSize(mega);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { take(socket); });
        });
    }

    QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(serverPort())); }

    qint64 announced = -1;
    qint64 received = 0;
    std::function<void()> onFirstBytes;

private:
    void take(QTcpSocket* socket)
    {
        QByteArray bytes = socket->readAll();
        if (announced < 0) {
            m_head += bytes;
            const qsizetype end = m_head.indexOf("\r\n\r\n");
            if (end < 0)
                return;
            const qsizetype at = m_head.toLower().indexOf("content-length:") + 15;
            announced = m_head.mid(at, m_head.indexOf('\r', at) - at).trimmed().toLongLong();
            bytes = m_head.mid(end + 4);
            if (onFirstBytes)
                onFirstBytes();
        }
        received += bytes.size();
        if (received >= announced)
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    }

    QByteArray m_head;
};

} // namespace

class TestUploadBody : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        m_files = std::make_unique<QTemporaryDir>();
    }

    void streamsAFileOfAnySize()
    {
        const qint64 size = 600 * mega;
        makeFile(size);
        Sink sink;
        const qint64 before = costs::peakBytes();
        Heartbeat heartbeat;
        QCOMPARE(send(sink), QStringList{QString()});
        const qint64 held = costs::peakBytes() - before;
        qInfo("%lld MB sent: %lld MB held, longest gap %lld ms (%lld ms of work)", size / mega,
              held / mega, heartbeat.longestMs(), heartbeat.longestProcessorMs());
        QCOMPARE(sink.received, size);
        QVERIFY(held < size / 2); // a sanitizer holds on to what was freed
        QVERIFY(heartbeat.longestProcessorMs() < 1000);
    }

    void sendsTheBytes_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("one byte") << QByteArray("x");
        QTest::newRow("zeros") << QByteArray(100, '\0');
        QByteArray counted;
        for (int i = 0; i < 200'000; ++i)
            counted += QByteArray::number(i) + '\n';
        QTest::newRow("a megabyte") << counted;
    }

    void sendsTheBytes()
    {
        QFETCH(QByteArray, content);
        QFile file(path());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        HttpServer server;
        server.answer("/", HttpAnswer::ok({}));
        QStringList errors;
        http::post(&m_network, request(QUrl(server.url(QStringLiteral("/")))),
                   UploadBody::open(path()), exchange(errors));
        QTRY_COMPARE(errors, QStringList{QString()});
        QCOMPARE(server.requests().first().header("Content-Length").toLongLong(), content.size());
        QCOMPARE(server.requests().first().body, content);
    }

    // The length has been announced; what the server waits for will never come.
    void endsWhenTheFileShrinks()
    {
        makeFile(64 * mega);
        Sink sink;
        sink.onFirstBytes = [this] { QVERIFY(QFile::resize(path(), mega)); };
        QCOMPARE(send(sink), QStringList{QStringLiteral("Cannot read file.")});
        QVERIFY(sink.received < sink.announced);
    }

    void sendsNoMoreThanAnnouncedWhenTheFileGrows()
    {
        makeFile(16 * mega);
        Sink sink;
        sink.onFirstBytes = [this] { QVERIFY(QFile::resize(path(), 64 * mega)); };
        QCOMPARE(send(sink), QStringList{QString()});
        QCOMPARE(sink.announced, 16 * mega);
        QCOMPARE(sink.received, 16 * mega);
    }

    // Whoever reads: the network layer asks for no more, but could.
    void endsWhereItWasAnnouncedToEnd()
    {
        makeFile(mega);
        const std::unique_ptr<UploadBody> body = UploadBody::open(path());
        QVERIFY(body);
        const QSignalSpy broke(body.get(), &UploadBody::broke);
        QVERIFY(QFile::resize(path(), 2 * mega));
        QCOMPARE(body->readAll().size(), mega);
        char byte = 0;
        QCOMPARE(body->read(&byte, 1), -1);
        QVERIFY(broke.isEmpty());
    }

    void opensRegularFilesOnly()
    {
        QVERIFY(!UploadBody::open(path()));
        QVERIFY(!UploadBody::open(m_files->path()));
        QVERIFY(!UploadBody::open(QStringLiteral("/dev/zero")));
        QVERIFY(!UploadBody::open(QString()));
    }

    // Root may read any file but those that the kernel keeps for writing only.
    void opensNothingThatCannotBeRead()
    {
        const auto path = QStringLiteral("/proc/sys/vm/compact_memory");
        QVERIFY(QFileInfo(path).isFile());
        QVERIFY(!UploadBody::open(path));
    }

    // The network layer does so when a kept-alive connection turns out to be closed.
    void canBeReadAgain()
    {
        makeFile(mega);
        const std::unique_ptr<UploadBody> body = UploadBody::open(path());
        QVERIFY(body);
        for (int round = 0; round < 2; ++round) {
            QCOMPARE(body->readAll().size(), mega);
            QVERIFY(body->atEnd());
            QVERIFY(body->seek(0));
            QCOMPARE(body->pos(), 0);
            QVERIFY(!body->atEnd());
        }
    }

    // The file is closed with the request, whoever ends it.
    void letsTheFileGo()
    {
        makeFile(64 * mega);
        Sink sink;
        sink.pauseAccepting();
        auto context = std::make_unique<QObject>();
        QStringList errors;
        http::Exchange abandoned = exchange(errors);
        abandoned.context = context.get();
        http::post(&m_network, request(sink.url()), UploadBody::open(path()), std::move(abandoned));
        QVERIFY(!m_network.findChildren<UploadBody*>().isEmpty());
        context.reset();
        QTRY_VERIFY(m_network.findChildren<UploadBody*>().isEmpty());
        QVERIFY(errors.isEmpty());
    }

private:
    QString path() const { return m_files->filePath(QStringLiteral("file")); }

    // Of holes: the disk holds none of it.
    void makeFile(qint64 size) const
    {
        QFile file(path());
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(size));
    }

    static QNetworkRequest request(const QUrl& url)
    {
        QNetworkRequest request(url);
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("image/png"));
        http::setBearerToken(request, QStringLiteral("t"));
        http::refuseRedirects(request);
        return request;
    }

    http::Exchange exchange(QStringList& errors)
    {
        return {.context = this, .maxBytes = mega, .done = [&errors](const http::Answer& answer) {
                    errors << answer.error;
                }};
    }

    // The texts of all answers: one, unless something is wrong.
    QStringList send(const Sink& sink)
    {
        QStringList errors;
        QNetworkAccessManager network;
        // QTest's waiting sleeps between events, and an upload is thousands of them.
        QEventLoop loop;
        http::Exchange sent = exchange(errors);
        sent.done = [&](const http::Answer& answer) {
            errors << answer.error;
            loop.quit();
        };
        http::post(&network, request(sink.url()), UploadBody::open(path()), std::move(sent));
        QTimer::singleShot(60'000, &loop, &QEventLoop::quit);
        loop.exec();
        QCoreApplication::processEvents();
        return errors;
    }

    std::unique_ptr<QTemporaryDir> m_files;
    QNetworkAccessManager m_network;
};

QTEST_GUILESS_MAIN(TestUploadBody)
#include "tst_upload_body.moc"
