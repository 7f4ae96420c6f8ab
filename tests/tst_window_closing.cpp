#include "app/settings.h"
#include "services/update_manager.h"
#include "tests/support/bulk_server.h"
#include "tests/support/files.h"
#include "tests/support/heartbeat.h"
#include "tests/support/loopback_deployment.h"
#include "tests/support/spin.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "tests/support/zip_builder.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 mega = 1024 * 1024;
constexpr int beatMs = 5;
// The aim is 100 ms; a busy machine under sanitizers adds its own.
constexpr qint64 closingMs = 500;
constexpr qint64 unheardMs = 150;

} // namespace

// Whatever the launcher is at, closing its window ends it at once. Also what passes until the wish
// to close is heard counts.
class TestWindowClosing : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        Settings::get().setJavaPath(u"/nowhere/java"_s);
    }
    void cleanup() { m_driver.reset(); }

    void closesWhileItReadsJars()
    {
        constexpr qint64 bytes = 256 * mega;
        const QString sha256 = VersionManager::sha256Hex(QByteArray(bytes, '\0'));
        QList<GameVersion> versions;
        for (int i = 0; i < 8; ++i) {
            const QString id = u"1.%1"_s.arg(i);
            QFile jar(VersionManager().jarPath(id));
            QDir().mkpath(QFileInfo(jar).absolutePath());
            QVERIFY(jar.open(QIODevice::WriteOnly) && jar.resize(bytes)); // sparse
            versions.append({id, u"http://127.0.0.1:9/"_s, sha256, {}});
        }
        m_driver->serveManifest(versions);
        m_driver->open();
        const Heartbeat heartbeat(beatMs);
        QVERIFY(spinUntil([since = started()] { return since.elapsed() > 100; }));
        expectSoonClosed(heartbeat);
    }

    void closesInTheMiddleOfADownload()
    {
        BulkServer server(200 * mega);
        server.stallAtHalf(true);
        m_driver->serveManifest({{u"big"_s, server.url(), QString(64, u'0'), {}}});
        m_driver->openAndWait();
        play();
        const Heartbeat heartbeat(beatMs);
        QVERIFY(spinUntil([&server] { return server.isStalled(); }));
        expectSoonClosed(heartbeat);
        QVERIFY(!QFile::exists(VersionManager().jarPath(u"big"_s)));
    }

    // Hashed and copied at full speed.
    void closesWhileAJarArrives()
    {
        const BulkServer server(300 * mega);
        m_driver->serveManifest({{u"big"_s, server.url(), QString(64, u'0'), {}}});
        m_driver->openAndWait();
        const auto received = receivedBy(m_driver->versions(), &VersionManager::downloadProgress);
        play();
        expectSoonClosedWhen([received] { return *received > 50 * mega; });
        QVERIFY(!QFile::exists(VersionManager().jarPath(u"big"_s)));
    }

    void closesWhileItWritesAJar()
    {
        const BulkServer server(400 * mega);
        m_driver->serveManifest({{u"big"_s, server.url(), {}, {}}});
        m_driver->openAndWait();
        const QString jar = m_driver->versions().jarPath(u"big"_s);
        play();
        expectSoonClosedWhen([&jar] { return QFile::exists(jar); });
        // Without a digest half a jar would pass for a whole one.
        QVERIFY(!QFile::exists(jar));
    }

    void closesWhileARuntimeArrives()
    {
        const BulkServer server(300 * mega);
        openWithoutRuntime(server);
        play();
        const QWidget* const progress = m_driver->findWidget("progressBar");
        expectSoonClosedWhen([progress] { return progress->property("value").toInt() > 15; });
        QVERIFY(!QFile::exists(runtimeDir() + u"/jre-download.zip"));
    }

    void closesWhileItWritesARuntime()
    {
        const BulkServer server(400 * mega);
        openWithoutRuntime(server);
        const QString archive = runtimeDir() + u"/jre-download.zip";
        play();
        expectSoonClosedWhen([&archive] { return QFile::exists(archive); });
        QVERIFY(!QFile::exists(archive));
    }

    void closesWhileItUnpacksARuntime_data()
    {
        QTest::addColumn<int>("files");
        QTest::addColumn<qint64>("bytes"); // of each
        QTest::newRow("a large file") << 1 << 400 * mega;
        QTest::newRow("many files") << 20'000 << qint64{10};
    }

    void closesWhileItUnpacksARuntime()
    {
        QFETCH(int, files);
        QFETCH(qint64, bytes);
        ZipBuilder runtime = ZipBuilder::runtime("jdk-11", "exit 0");
        for (int i = 0; i < files; ++i)
            runtime.raw({.name = "jdk-11/lib/" + QByteArray::number(i),
                         .content = QByteArray(bytes, 'x'),
                         .method = 0});
        const BulkServer server(runtime.bytes());
        openWithoutRuntime(server);
        const QString first = runtimeDir() + u"/jdk-11/lib/0";
        play();
        expectSoonClosedWhen([&first] { return QFile::exists(first); });
        QVERIFY(!QFile::exists(runtimeDir() + u"/jre-11"));
    }

    void closesWhileAnUpdateArrives()
    {
        const BulkServer server(400 * mega);
        m_driver->server().answer(
            "/manifest.json",
            HttpAnswer::json(R"({"versions":[],"launcherLinux":{"version":"9.9.9",)"
                             R"("url":")" +
                             server.url().toUtf8() + R"(","sha256":"0"}})"));
        m_driver->open();
        const auto received = receivedBy(m_driver->updates(), &UpdateManager::updateProgress);
        expectSoonClosedWhen([received] { return *received > 20 * mega; });
        QVERIFY(!QFile::exists(QCoreApplication::applicationFilePath() + u".new"));
    }

    // Both managers are at it, and cannot be interrupted there.
    void closesWhileItParsesAManifest()
    {
        QByteArray manifest = R"({"versions":[],"news":[)";
        manifest += QByteArray("0,").repeated(2 * mega) + "0]}";
        const QElapsedTimer parsing = started();
        QVERIFY(VersionManager().parseManifest(manifest));
        const qint64 alone = parsing.elapsed();
        const BulkServer server(manifest);
        Settings::get().setManifestUrl(server.url());
        for (const double part : {0.1, 0.4, 0.8}) {
            m_driver->open();
            const Heartbeat heartbeat(beatMs);
            const auto delay = static_cast<qint64>(part * static_cast<double>(alone));
            QVERIFY(spinUntil([since = started(), delay] { return since.elapsed() > delay; }));
            qInfo("after %lld ms; it takes %lld ms", delay, alone);
            expectSoonClosed(heartbeat);
        }
    }

    void closesWhileAGamePrints()
    {
        const QString java = Settings::get().gameDir() + u"/java";
        writeScript(java, "exec yes '[12:00:00] [main/INFO]: what a game says'");
        Settings::get().setJavaPath(java);
        m_driver->serveManifest({m_driver->serveVersion(u"1.0"_s, "jar")});
        m_driver->openAndWait();
        play();
        expectSoonClosedWhen([this] { return m_driver->consoleLines().size() > 1000; });
    }

private:
    static QElapsedTimer started()
    {
        QElapsedTimer timer;
        timer.start();
        return timer;
    }

    static QString runtimeDir() { return Settings::get().gameDir() + u"/runtime"; }

    void play() { QVERIFY(QMetaObject::invokeMethod(&m_driver->window(), "onPlayClicked")); }

    void openWithoutRuntime(const BulkServer& server)
    {
        Settings::get().setJavaPath({});
        loopback_deployment::setRuntimeOrigin(server.url().chopped(1));
        m_driver->serveManifest({{u"1.0"_s, u"http://127.0.0.1:9/"_s, {}, {}}});
        m_driver->openAndWait();
    }

    // What of a download has come, from now on.
    template <typename Manager>
    std::shared_ptr<qint64> receivedBy(Manager& manager, void (Manager::*progress)(qint64, qint64))
    {
        auto received = std::make_shared<qint64>(0);
        connect(&manager, progress, this, [received](qint64 bytes, qint64) { *received = bytes; });
        return received;
    }

    void expectSoonClosedWhen(const std::function<bool()>& begun)
    {
        const Heartbeat heartbeat(beatMs);
        QVERIFY(spinUntil(begun));
        expectSoonClosed(heartbeat);
    }

    void expectSoonClosed(const Heartbeat& heartbeat)
    {
        const qint64 unheard = heartbeat.longestProcessorMs();
        const QElapsedTimer closing = started();
        m_driver->close();
        const qint64 closed = closing.elapsed();
        qInfo("unheard for %lld ms of processor time, closed in %lld ms", unheard, closed);
        QVERIFY(closed < closingMs * Heartbeat::slowness);
        QVERIFY(unheard < unheardMs * Heartbeat::slowness);
    }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestWindowClosing)
#include "tst_window_closing.moc"
