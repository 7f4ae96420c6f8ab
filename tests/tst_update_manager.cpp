#include "app/deployment.h"
#include "app/settings.h"
#include "services/update_manager.h"
#include "tests/support/heartbeat.h"
#include "tests/support/http_server.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/tls.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <limits>
#include <memory>

namespace {

const auto mismatch = QStringLiteral("Checksum mismatch on launcher update");

QByteArray hexSha256(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
}

QJsonObject build(const QString& version, const QString& url, const QString& sha256)
{
    return {{QStringLiteral("version"), version},
            {QStringLiteral("url"), url},
            {QStringLiteral("sha256"), sha256}};
}

QByteArray manifest(const QJsonObject& launcher, const QJsonObject& launcherLinux = {},
                    const QJsonObject& launcherArchive = {})
{
    return QJsonDocument(QJsonObject{{QStringLiteral("versions"), QJsonArray()},
                                     {QStringLiteral("launcher"), launcher},
                                     {QStringLiteral("launcherLinux"), launcherLinux},
                                     {QStringLiteral("launcherArchive"), launcherArchive}})
        .toJson();
}

} // namespace

// The check and the download, up to the digest: the builds that these tests offer never pass it,
// so that nothing is ever staged beside the test program.
class TestUpdateManager : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        throwaway_home::clear();
        m_server = std::make_unique<HttpServer>();
        Settings::get().setManifestUrl(m_server->url(QStringLiteral("/manifest.json")));
        m_manager = std::make_unique<UpdateManager>();
        m_log.clear();
        connect(m_manager.get(), &UpdateManager::upToDate, this, [this] { log("upToDate"); });
        connect(m_manager.get(), &UpdateManager::updateAvailable, this,
                [this](const QString& version) { log("updateAvailable " + version.toUtf8()); });
        connect(m_manager.get(), &UpdateManager::updateReady, this,
                [this](const QString& version) { log("updateReady " + version.toUtf8()); });
        connect(m_manager.get(), &UpdateManager::updateFailed, this,
                [this](const QString& error) { log("updateFailed " + error.toUtf8()); });
    }

    void cleanup()
    {
        QVERIFY(!QFile::exists(QCoreApplication::applicationFilePath() + u".new"));
        QVERIFY(!QFile::exists(QDir::tempPath() + u"/tessellan_launcher_update.sh"));
    }

    void comparesVersions_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("difference");
        const auto row = [](const char* a, const char* b, int difference) {
            QTest::addRow("%s with %s", a, b)
                << QString::fromLatin1(a) << QString::fromLatin1(b) << difference;
        };
        row("1.0.16", "1.0.16", 0);
        row("1.0.17", "1.0.16", 1);
        row("1.0.16", "1.0.9", 7);
        row("1.0.9", "1.0.16", -7);
        row("1.1", "1.0.16", 1);
        row("2", "1.0.16", 1);
        row("1.0.16-rc1", "1.0.16", -16);
        row("", "1", -1);
        row("", "", 0);
        row("1.0", "1.0.0", 0);
        row("1.0.0.1", "1.0", 1);
        row("1..2", "1.0.2", 0);
        row("1..2", "1.1", -1);
        row("2.x", "2.0", 0);
        row("x.2", "0.1", 1);
        row("99999999999.1", "0.1", 0);
        row("99999999999.1", "1", -1);
        row("2147483647", "0", 2147483647);
        row("2147483648", "0", 0);
        row("1.", "1", 0);
        row(".", "0", 0);
        row("0x10", "0", 0);
        row("1e3", "0", 0);
        row("2147483647", "-2147483648", std::numeric_limits<int>::max());
        row("-2147483648", "1", std::numeric_limits<int>::min());
    }

    void comparesVersions()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, difference);
        QCOMPARE(UpdateManager::compareVersions(a, b), difference);
    }

    void hashesTheRunningExecutable()
    {
        QFile exe(QCoreApplication::applicationFilePath());
        QVERIFY(exe.open(QIODevice::ReadOnly));
        QCOMPARE(UpdateManager::runningExeSha256(), QString::fromLatin1(hexSha256(exe.readAll())));
        QCOMPARE(UpdateManager::runningExeSha256().size(), 64);
    }

    void findsNoQtBesideTheTest() { QVERIFY(!UpdateManager::qtRuntimePresent()); }

    void staysSilentWhenNothingIsOffered_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        const QString url = QStringLiteral("http://127.0.0.1:9/launcher");
        const auto row = [](const char* name, const QByteArray& body) {
            QTest::newRow(name) << HttpAnswer::json(QByteArray(body).replace('\'', '"'));
        };
        row("no launcher", "{'versions': []}");
        row("not JSON", "<html>hello</html>");
        row("empty body", "");
        row("an array", "[1, 2]");
        row("launcher is a string", "{'launcher': '1.0.17'}");
        row("launcher is an array", "{'launcher': ['1.0.17']}");
        row("launcher is null", "{'launcher': null, 'launcherLinux': null}");
        row("version is a number", "{'launcher': {'version': 2, 'url': 'http://127.0.0.1:9/'}}");
        row("url is an object", "{'launcher': {'version': '2', 'url': {}}}");
        row("no version", manifest(build({}, url, QStringLiteral("00"))));
        row("no url", manifest(build(QStringLiteral("1.0.17"), {}, {})));
        row("same version, no digest", manifest(build(QStringLiteral("1.0.16"), url, {})));
        row("older version, no digest", manifest(build(QStringLiteral("1.0.15"), url, {})));
        row("version of letters, no digest", manifest(build(QStringLiteral("next"), url, {})));
        row("version beyond 32 bits, no digest",
            manifest(build(QStringLiteral("99999999999.1"), url, {})));
        row("digest is a number",
            "{'launcher': {'version': '1.0.16', 'url': 'http://127.0.0.1:9/', 'sha256': 5}}");
        row("empty Linux build replaces nothing",
            manifest(build(QStringLiteral("1.0.16"), url, {}), QJsonObject()));
        row("Linux build without url is ignored",
            manifest({}, build(QStringLiteral("1.0.17"), {}, QStringLiteral("00"))));
        row("Linux build replaces the generic one entirely",
            manifest(build(QStringLiteral("9.9"), url, QStringLiteral("00")),
                     build({}, url, QStringLiteral("00"))));
        row("only an archive", manifest({}, {}, build(QStringLiteral("9.9"), url, {})));

        const QByteArray newer = manifest(build(QStringLiteral("9.9"), url, {}));
        QTest::newRow("not found") << HttpAnswer::json(newer, 404);
        QTest::newRow("server error") << HttpAnswer::json(newer, 500);
        HttpAnswer cut = HttpAnswer::json(newer + QByteArray(1000, ' '));
        cut.cutAfter = newer.size();
        QTest::newRow("manifest cut short") << cut;
        HttpAnswer endless = HttpAnswer::json(QByteArray(64 * 1024, ' '));
        endless.endless = true;
        QTest::newRow("endless manifest") << endless;
        QTest::newRow("redirected in a circle")
            << HttpAnswer::redirect(QStringLiteral("/manifest.json"));
    }

    void staysSilentWhenNothingIsOffered()
    {
        QFETCH(HttpAnswer, answer);
        m_server->answer("/manifest.json", answer);
        m_manager->checkForUpdate();
        QTRY_VERIFY(!m_log.isEmpty());
        QCOMPARE(m_log, QByteArrayList{"upToDate"});
    }

    void staysSilentWithoutServer()
    {
        m_server->goOffline();
        m_manager->checkForUpdate();
        QTRY_COMPARE(m_log, QByteArrayList{"upToDate"});
    }

    void keepsTheBuildThatTheManifestNames_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("sha256");
        const QString own = UpdateManager::runningExeSha256();
        QTest::newRow("same version") << QStringLiteral("1.0.16") << own;
        QTest::newRow("digest in upper case") << QStringLiteral("1.0.16") << own.toUpper();
        QTest::newRow("older version") << QStringLiteral("1.0.15") << own;
    }

    void keepsTheBuildThatTheManifestNames()
    {
        QFETCH(QString, version);
        QFETCH(QString, sha256);
        m_server->answer("/manifest.json",
                         HttpAnswer::json(manifest(
                             build(version, m_server->url(QStringLiteral("/launcher")), sha256))));
        m_manager->checkForUpdate();
        QTRY_COMPARE(m_log, QByteArrayList{"upToDate"});
        QCOMPARE(m_server->requestCount("/launcher"), 0);
    }

    void asksPlainly()
    {
        m_server->answer("/manifest.json", HttpAnswer::json("{}"));
        m_manager->checkForUpdate();
        QTRY_COMPARE(m_log, QByteArrayList{"upToDate"});
        QCOMPARE(m_server->requests().size(), 1);
        QCOMPARE(m_server->requests().first().method, QByteArray("GET"));
        QVERIFY(m_server->requests().first().header("Authorization").isNull());
    }

    void offersWhatDiffers_data()
    {
        QTest::addColumn<QJsonObject>("generic");
        QTest::addColumn<QJsonObject>("forLinux");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QByteArray>("path");
        const QString wrong = QString(64, u'0');
        const QString g = QStringLiteral("/generic");
        const QString l = QStringLiteral("/linux");
        const auto next = QStringLiteral("1.0.17");
        const auto same = QStringLiteral("1.0.16");
        const auto older = QStringLiteral("1.0.15");
        QTest::newRow("newer version")
            << build(next, g, wrong) << QJsonObject() << next << QByteArray("/generic");
        QTest::newRow("newer major") << build(QStringLiteral("2"), g, wrong) << QJsonObject()
                                     << QStringLiteral("2") << QByteArray("/generic");
        QTest::newRow("same version republished")
            << build(same, g, wrong) << QJsonObject() << same << QByteArray("/generic");
        QTest::newRow("downgrade")
            << build(older, g, wrong) << QJsonObject() << older << QByteArray("/generic");
        QTest::newRow("Linux build goes first")
            << build(next, g, wrong) << build(next, l, wrong) << next << QByteArray("/linux");
        QTest::newRow("Linux build goes first, even older")
            << build(next, g, wrong) << build(older, l, wrong) << older << QByteArray("/linux");
        QTest::newRow("Linux build without url is ignored")
            << build(next, g, wrong) << build(QStringLiteral("9"), {}, wrong) << next
            << QByteArray("/generic");
        QTest::newRow("digest of another form") << build(same, g, QStringLiteral("sha256:00"))
                                                << QJsonObject() << same << QByteArray("/generic");
    }

    void offersWhatDiffers()
    {
        QFETCH(QJsonObject, generic);
        QFETCH(QJsonObject, forLinux);
        QFETCH(QString, version);
        QFETCH(QByteArray, path);
        for (QJsonObject* object : {&generic, &forLinux}) {
            const QString url = object->value(QStringLiteral("url")).toString();
            if (!url.isEmpty())
                object->insert(QStringLiteral("url"), m_server->url(url));
        }
        const QJsonObject archive =
            build({}, m_server->url(QStringLiteral("/archive")), QString(64, u'0'));
        m_server->answer("/manifest.json", HttpAnswer::json(manifest(generic, forLinux, archive)));
        m_server->answer(path, HttpAnswer::ok("a new build"));
        m_manager->checkForUpdate();
        QTRY_COMPARE(m_log, (QByteArrayList{"updateAvailable " + version.toUtf8(),
                                            "updateFailed " + mismatch.toUtf8()}));
        QCOMPARE(m_server->requestCount(path), 1);
        QCOMPARE(m_server->requests().size(), 2);
    }

    void reportsProgress()
    {
        QSignalSpy progress(m_manager.get(), &UpdateManager::updateProgress);
        offer(HttpAnswer::ok(QByteArray(300'000, 'x')));
        QTRY_VERIFY(m_log.contains("updateFailed " + mismatch.toUtf8()));
        QVERIFY(!progress.isEmpty());
        QCOMPARE(progress.last(), (QVariantList{qint64{300'000}, qint64{300'000}}));
    }

    void readsAHugeManifestBesideTheEventLoop()
    {
        QByteArray huge = "{\"versions\":[";
        while (huge.size() < 16 * 1024 * 1024 - 200)
            huge += R"({"id":"1","url":"u"},)";
        huge += R"({}],"launcher":{"version":"0.9","url":"http://x/"}})";
        m_server->answer("/manifest.json", HttpAnswer::json(huge));
        Heartbeat heartbeat;
        m_manager->checkForUpdate();
        QTRY_COMPARE_WITH_TIMEOUT(m_log, QByteArrayList{"upToDate"}, 60'000);
        // On the same thread it is half a second of work under sanitizers.
        QVERIFY2(heartbeat.longestProcessorMs() < 250 * Heartbeat::slowness,
                 qPrintable(QString::number(heartbeat.longestProcessorMs())));
    }

    void failsWithTheNetworksText_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QString>("text");
        QTest::newRow("not found")
            << HttpAnswer::htmlError(404)
            << QStringLiteral("Error transferring %1/build - server replied: Scripted");
        HttpAnswer cut = HttpAnswer::ok(QByteArray(100'000, 'x'));
        cut.cutAfter = 50'000;
        QTest::newRow("cut short") << cut << QStringLiteral("Connection closed");
        HttpAnswer huge = HttpAnswer::ok("x");
        huge.announcedLength = qint64{5} * 1024 * 1024 * 1024;
        QTest::newRow("announced beyond the limit")
            << huge << QStringLiteral("The server sent more than 1024 MB");
        QTest::newRow("redirected to a file")
            << HttpAnswer::redirect(QStringLiteral("file:///bin/true")) << QString();
    }

    void failsWithTheNetworksText()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QString, text);
        offer(answer);
        QTRY_COMPARE(m_log.size(), 2);
        QCOMPARE(m_log.first(), QByteArray("updateAvailable 1.0.17"));
        QVERIFY(m_log.last().startsWith("updateFailed "));
        if (text.contains(u"%1"))
            text = text.arg(m_server->origin());
        QVERIFY2(m_log.last().contains(text.toUtf8()), m_log.last().constData());
        QVERIFY(!m_log.last().contains(mismatch.toUtf8()));
    }

    void followsRedirects()
    {
        m_server->answer("/moved", HttpAnswer::ok("a new build"));
        offer(HttpAnswer::redirect(m_server->url(QStringLiteral("/moved"))));
        QTRY_COMPARE(m_log.size(), 2);
        QCOMPARE(m_server->requestCount("/moved"), 1);
        QCOMPARE(m_log.last(), "updateFailed " + mismatch.toUtf8());
    }

    void refusesToLeaveTls()
    {
        const TestAuthority authority;
        authority.trust();
        HttpServer safe(authority.serverFor({QStringLiteral("localhost")}));
        safe.answer("/build", HttpAnswer::redirect(m_server->url(QStringLiteral("/plain"))));
        m_server->answer("/plain", HttpAnswer::ok("a new build"));
        const QString url = QStringLiteral("https://localhost:%1/build").arg(safe.port());
        m_server->answer(
            "/manifest.json",
            HttpAnswer::json(manifest(build(QStringLiteral("1.0.17"), url, QString(64, u'0')))));
        m_manager->checkForUpdate();
        QTRY_COMPARE(m_log.size(), 2);
        QVERIFY(m_log.last().startsWith("updateFailed "));
        QVERIFY(!m_log.last().contains(mismatch.toUtf8()));
        QCOMPARE(safe.requestCount("/build"), 1);
        QCOMPARE(m_server->requestCount("/plain"), 0);
    }

    void diesQuietlyInTheMiddle()
    {
        HttpAnswer stalled = HttpAnswer::ok(QByteArray(100'000, 'x'));
        stalled.stallAfter = 50'000;
        offer(stalled);
        QTRY_COMPARE(m_server->requestCount("/build"), 1);
        m_manager.reset();
        QCOMPARE(m_log, QByteArrayList{"updateAvailable 1.0.17"});
    }

private:
    void log(const QByteArray& line) { m_log.append(line); }

    void offer(const HttpAnswer& answer)
    {
        m_server->answer("/manifest.json",
                         HttpAnswer::json(manifest(build(QStringLiteral("1.0.17"),
                                                         m_server->url(QStringLiteral("/build")),
                                                         QString(64, u'0')))));
        m_server->answer("/build", answer);
        m_manager->checkForUpdate();
    }

    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<UpdateManager> m_manager;
    QByteArrayList m_log;
};

QTEST_GUILESS_MAIN(TestUpdateManager)
#include "tst_update_manager.moc"
