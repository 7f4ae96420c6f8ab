#include "services/update_download.h"
#include "tests/support/bulk_server.h"
#include "tests/support/http_server.h"

#include <QElapsedTimer>
#include <QFile>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

constexpr qint64 mega = 1024 * 1024;
constexpr qint64 limit = 6 * mega; // more than the download lets wait
// No body has it: nothing is staged.
const QString noDigest(64, u'0');
const auto mismatch = QStringLiteral("Checksum mismatch on launcher update");

} // namespace

// How much a download takes; what becomes of it is tested with real programs.
class TestUpdateDownload : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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
        HttpAnswer announced = HttpAnswer::ok("");
        announced.announcedLength = limit + 1;
        announced.stallAfter = 0;
        QTest::newRow("announced, before it comes") << announced;
    }

    void stopsBodiesOverTheLimit()
    {
        QFETCH(HttpAnswer, answer);
        QCOMPARE(errorOf(answer), QStringLiteral("The server sent more than 6 MB"));
    }

    void takesBodiesOfExactlyTheLimit_data()
    {
        QTest::addColumn<HttpAnswer::Framing>("framing");
        QTest::newRow("with a length") << HttpAnswer::Framing::Length;
        QTest::newRow("until the connection closes") << HttpAnswer::Framing::UntilClose;
        QTest::newRow("chunked") << HttpAnswer::Framing::Chunked;
    }

    void takesBodiesOfExactlyTheLimit()
    {
        QFETCH(HttpAnswer::Framing, framing);
        HttpAnswer answer = HttpAnswer::ok(QByteArray(limit, 'x'));
        answer.framing = framing;
        QCOMPARE(errorOf(answer), mismatch);
    }

    void comparesTheWholeDigest_data()
    {
        QTest::addColumn<QString>("digest");
        const auto right = QStringLiteral(
            "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824"); // of "hello"
        QTest::newRow("end missing") << right.chopped(1);
        QTest::newRow("longer") << QString(right + u'0');
        QTest::newRow("other end") << QString(right.chopped(1) + u'5');
        QTest::newRow("other beginning") << QString(u'3' + right.mid(1));
    }

    void comparesTheWholeDigest()
    {
        QFETCH(QString, digest);
        QCOMPARE(errorOf(HttpAnswer::ok("hello"), digest), mismatch);
    }

    void neverTakesAnUntrueLength()
    {
        HttpAnswer answer = HttpAnswer::ok("little");
        answer.announcedLength = limit;
        QVERIFY(!errorOf(answer).isEmpty());
    }

    void endsSoonInTheMiddle()
    {
        BulkServer server(60 * mega);
        server.stallAtHalf(true);
        auto download = std::make_unique<UpdateDownload>(nullptr);
        download->start(&m_network, server.url(), {}, false);
        QTRY_VERIFY(server.isStalled());
        QElapsedTimer closing;
        closing.start();
        download.reset();
        QVERIFY2(closing.elapsed() < 400, qPrintable(QString::number(closing.elapsed())));
        QVERIFY(!QFile::exists(QCoreApplication::applicationFilePath() + u".new"));
    }

private:
    // The text of the one failure, after which the download is gone.
    QString errorOf(const HttpAnswer& answer, const QString& digest = noDigest)
    {
        m_server.answer("/build", answer);
        const QPointer<UpdateDownload> download = new UpdateDownload(this);
        QSignalSpy failed(download, &UpdateDownload::failed);
        QSignalSpy ready(download, &UpdateDownload::ready);
        download->start(&m_network, m_server.url(QStringLiteral("/build")), digest, false, limit);
        const bool gone = QTest::qWaitFor([&download] { return download.isNull(); }, 20'000);
        return gone && ready.isEmpty() && failed.size() == 1 ? failed.first().first().toString()
                                                             : QString();
    }

    HttpServer m_server;
    QNetworkAccessManager m_network;
};

QTEST_GUILESS_MAIN(TestUpdateDownload)
#include "tst_update_download.moc"
