#include "app/settings.h"
#include "services/runtime_manager.h"
#include "tests/support/files.h"
#include "tests/support/http_server.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/tls.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <atomic>
#include <memory>

namespace {

// The address that the program is built with by default.
const QByteArray apiHost = "api.adoptium.net";
const QByteArray apiPath = "/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse";
const QByteArray mirrorHost = "downloads.example";

const auto extractError = QStringLiteral("Could not extract Java runtime");
const auto layoutError = QStringLiteral("Runtime archive had unexpected layout");
const auto finalizeError = QStringLiteral("Could not finalize runtime install");
const auto downloadError = QStringLiteral("Runtime download failed: ");

// What a manager reports, as its owner on the GUI thread receives it.
class Listener : public QObject
{
    Q_OBJECT

public:
    explicit Listener(const RuntimeManager& manager)
    {
        connect(&manager, &RuntimeManager::installFinished, this, [this] { take(QString()); });
        connect(&manager, &RuntimeManager::installFailed, this, &Listener::take);
        connect(&manager, &RuntimeManager::downloadProgress, this,
                [this](qint64 received, qint64 total) { progress.append({received, total}); });
    }

    QStringList outcomes; // an empty text is a success
    QList<std::pair<qint64, qint64>> progress;
    bool onGuiThread = true;

private:
    void take(const QString& error)
    {
        outcomes.append(error);
        onGuiThread = onGuiThread && QThread::currentThread() == thread();
    }
};

ZipBuilder goodRuntime()
{
    return ZipBuilder::runtime("jdk-11.0.25+9-jre", "echo new");
}

} // namespace

class TestRuntimeManager : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void initTestCase()
    {
        m_authority.trust();
        m_server = std::make_unique<HttpServer>(
            m_authority.serverFor({QString::fromLatin1(apiHost), QString::fromLatin1(mirrorHost)}));
    }

    void init()
    {
        m_gameDir = std::make_unique<QTemporaryDir>();
        Settings::get().setGameDir(m_gameDir->filePath(QStringLiteral("gäme dir")));
        m_server->forgetRequests();
        m_proxy = std::make_unique<TunnelProxy>();
        m_proxy->lead(apiHost + ":443", m_server->port());
        m_proxy->lead(mirrorHost + ":443", m_server->port());
    }

    void knowsItsPlaces()
    {
        Settings::get().setGameDir(QStringLiteral("/g"));
        QCOMPARE(RuntimeManager::runtimeDir(), QStringLiteral("/g/runtime/jre-11"));
        QCOMPARE(RuntimeManager::javaExe(), QStringLiteral("/g/runtime/jre-11/bin/java"));
        Settings::get().setGameDir(QString());
        QCOMPARE(RuntimeManager::javaExe(), QStringLiteral("/runtime/jre-11/bin/java"));
    }

    void countsAsInstalledByItsJavaAlone()
    {
        QVERIFY(!RuntimeManager::isInstalled());
        writeFile(RuntimeManager::javaExe(), "neither executable nor java");
        QVERIFY(RuntimeManager::isInstalled());
    }

    void installsFromTheFixedAddress()
    {
        serve(goodRuntime());
        QCOMPARE(installed(), QString());
        QCOMPARE(m_proxy->requestLines(),
                 QList<QByteArray>{"CONNECT api.adoptium.net:443 HTTP/1.1"});
        QCOMPARE(m_server->requests().size(), 1);
        const HttpRequest& request = m_server->requests().constFirst();
        QCOMPARE(request.method, QByteArray("GET"));
        QCOMPARE(request.path, apiPath);
        QCOMPARE(request.header("Host"), apiHost);

        QVERIFY(RuntimeManager::isInstalled());
        QCOMPARE(namesIn(base()), QStringList{QStringLiteral("jre-11")});
        QProcess java;
        java.start(RuntimeManager::javaExe(), QStringList());
        QVERIFY(java.waitForFinished());
        QCOMPARE(java.readAll(), QByteArray("new\n"));
    }

    void followsTheRedirectToTheFile()
    {
        m_server->answer(apiPath,
                         HttpAnswer::redirect(QStringLiteral("https://downloads.example/jre.zip")));
        m_server->answer("/jre.zip", HttpAnswer::ok(goodRuntime().bytes()));
        QCOMPARE(installed(), QString());
        const QList<QByteArray> expected{"CONNECT api.adoptium.net:443 HTTP/1.1",
                                         "CONNECT downloads.example:443 HTTP/1.1"};
        QCOMPARE(m_proxy->requestLines(), expected);
    }

    void refusesTheRedirectToHttp()
    {
        m_server->answer(apiPath,
                         HttpAnswer::redirect(QStringLiteral("http://downloads.example/jre.zip")));
        QVERIFY(installed().startsWith(downloadError));
        QCOMPARE(m_proxy->requestLines().size(), 1);
        QVERIFY(!RuntimeManager::isInstalled());
    }

    void refusesAStrangersCertificate()
    {
        const TestAuthority stranger;
        HttpServer impostor(stranger.serverFor({QString::fromLatin1(apiHost)}));
        impostor.answer(apiPath, HttpAnswer::ok(goodRuntime().bytes()));
        m_proxy->lead(apiHost + ":443", impostor.port());
        QVERIFY(installed().startsWith(downloadError));
        QVERIFY(impostor.requests().isEmpty());
        QVERIFY(!RuntimeManager::isInstalled());
    }

    void reportsFailedDownloads_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QString>("text"); // somewhere in the message
        QTest::newRow("500 with HTML")
            << HttpAnswer::htmlError(500) << QStringLiteral("server replied");
        QTest::newRow("404") << HttpAnswer::json("{}", 404) << QStringLiteral("server replied");
        HttpAnswer answer = HttpAnswer::ok(goodRuntime().bytes());
        answer.cutAfter = 100;
        QTest::newRow("closes early") << answer << QStringLiteral("closed");
        answer = HttpAnswer::ok(goodRuntime().bytes());
        answer.announcedLength = answer.body.size() + 1;
        QTest::newRow("announces too much") << answer << QStringLiteral("closed");
        answer.announcedLength = 2LL * 1024 * 1024 * 1024;
        answer.stallAfter = 100;
        QTest::newRow("announces two gigabytes")
            << answer << QStringLiteral("The server sent more than 1024 MB");
    }

    void reportsFailedDownloads()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QString, text);
        installOldRuntime();
        m_server->answer(apiPath, answer);
        const QString error = installed();
        QVERIFY2(error.startsWith(downloadError) && error.contains(text), qPrintable(error));
        QCOMPARE(namesIn(base()), QStringList{QStringLiteral("jre-11")});
        QCOMPARE(contentOf(RuntimeManager::javaExe()), QByteArray("old"));
    }

    void staysSilentWhileTheServerStalls()
    {
        m_server->answer(apiPath, HttpAnswer::silence());
        auto manager = std::make_unique<RuntimeManager>();
        const Listener listener(*manager);
        manager->install();
        QTRY_COMPARE(m_server->requests().size(), 1);
        manager.reset();
        QCoreApplication::processEvents();
        QVERIFY(listener.outcomes.isEmpty());
        QVERIFY(!QFileInfo::exists(base()));
    }

    void forwardsTheProgress()
    {
        const QByteArray archive = goodRuntime().bytes();
        m_server->answer(apiPath, HttpAnswer::ok(archive));
        RuntimeManager manager;
        const Listener listener(manager);
        manager.install();
        QTRY_COMPARE(listener.outcomes.size(), 1);
        QVERIFY(!listener.progress.isEmpty());
        const auto size = qint64{archive.size()};
        QCOMPARE(listener.progress.constLast(), std::make_pair(size, size));
    }

    void forwardsUnknownLengths()
    {
        HttpAnswer answer = HttpAnswer::ok(QByteArray(4096, 'x'));
        answer.framing = HttpAnswer::Framing::UntilClose;
        answer.endless = true;
        m_server->answer(apiPath, answer);
        RuntimeManager manager;
        const Listener listener(manager);
        manager.install();
        QTRY_VERIFY(!listener.progress.isEmpty());
        QVERIFY(listener.progress.constFirst().first > 0);
        QCOMPARE(listener.progress.constFirst().second, -1);
    }

    void replacesAnOlderRuntime()
    {
        installOldRuntime();
        writeFile(QString(RuntimeManager::runtimeDir() + u"/lib/old"), "old");
        serve(goodRuntime());
        QCOMPARE(installed(), QString());
        QVERIFY(contentOf(RuntimeManager::javaExe()).contains("new"));
        QVERIFY(!QFileInfo::exists(QString(RuntimeManager::runtimeDir() + u"/lib")));
    }

    void takesTheDirectoryOfThisArchive()
    {
        writeFile(QString(base() + u"/jdk-10-interrupted/bin/java"), "half");
        writeFile(QString(base() + u"/jdk-12-interrupted/bin/java"), "half");
        serve(goodRuntime());
        QCOMPARE(installed(), QString());
        QVERIFY(contentOf(RuntimeManager::javaExe()).contains("new"));
        QCOMPARE(namesIn(base()).size(), 3);
    }

    void reportsBadArchives_data()
    {
        QTest::addColumn<QByteArray>("archive");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("leftBehind");
        const QByteArray good = goodRuntime().bytes();
        QTest::newRow("empty") << QByteArray() << extractError << QString();
        QTest::newRow("no ZIP") << QByteArray("\x1f\x8b\x08 tar.gz") << extractError << QString();
        QTest::newRow("cut") << good.left(good.size() / 2) << extractError << QString();
        QTest::newRow("hostile") << goodRuntime().file("../../evil", "x").bytes() << extractError
                                 << QStringLiteral("jdk-11.0.25+9-jre");
        QTest::newRow("damaged") << goodRuntime().withWrongChecksums().file("x", "y").bytes()
                                 << extractError << QStringLiteral("jdk-11.0.25+9-jre");
        QTest::newRow("directory named jre")
            << ZipBuilder::runtime("jre", "").bytes() << layoutError << QStringLiteral("jre");
        QTest::newRow("a file named like a build")
            << ZipBuilder().file("jdk-11", "x").bytes() << layoutError << QStringLiteral("jdk-11");
        QTest::newRow("without java")
            << ZipBuilder().file("jdk-11/release", "x").bytes() << finalizeError << QString();
    }

    void reportsBadArchives()
    {
        QFETCH(QByteArray, archive);
        QFETCH(QString, error);
        QFETCH(QString, leftBehind);
        installOldRuntime();
        m_server->answer(apiPath, HttpAnswer::ok(archive));
        QCOMPARE(installed(), error);
        QVERIFY(!QFileInfo::exists(QString(base() + u"/jre-download.zip")));
        if (!leftBehind.isEmpty())
            QVERIFY(namesIn(base()).contains(leftBehind));
        QVERIFY(!QFileInfo::exists(QString(m_gameDir->path() + u"/evil")));
        // The old one goes only when a whole archive of the right layout stands in its place.
        const bool replaced = error == finalizeError;
        QCOMPARE(RuntimeManager::isInstalled(), !replaced);
        if (!replaced)
            QCOMPARE(contentOf(RuntimeManager::javaExe()), QByteArray("old"));
    }

    void reportsAPlaceThatCannotBeTaken()
    {
        writeFile(RuntimeManager::runtimeDir(), "a file where the directory belongs");
        serve(goodRuntime());
        QCOMPARE(installed(), finalizeError);
    }

    void reportsAnUnwritableArchive_data()
    {
        QTest::addColumn<QString>("obstacle");
        QTest::newRow("the game directory is a file") << QString();
        QTest::newRow("the archive is a directory")
            << QStringLiteral("/runtime/jre-download.zip/x");
    }

    void reportsAnUnwritableArchive()
    {
        QFETCH(QString, obstacle);
        writeFile(QString(Settings::get().gameDir() + obstacle), "in the way");
        serve(goodRuntime());
        QCOMPARE(installed(), QString(u"Cannot write " + base() + u"/jre-download.zip"));
    }

    void downloadsAgainThoughInstalled()
    {
        serve(goodRuntime());
        QCOMPARE(installed(), QString());
        QCOMPARE(installed(), QString());
        QCOMPARE(m_server->requests().size(), 2);
    }

    void reportsBothOfTwoInstalls()
    {
        serve(goodRuntime());
        RuntimeManager manager;
        const Listener listener(manager);
        manager.install();
        manager.install();
        QTRY_COMPARE(listener.outcomes.size(), 2);
        QCOMPARE(m_server->requests().size(), 2);
    }

    void unpacksOffTheGuiThread()
    {
        serve(goodRuntime());
        RuntimeManager manager;
        const Listener listener(manager);
        std::atomic<QThread*> worker = nullptr;
        connect(
            &manager, &RuntimeManager::installFinished, &manager,
            [&worker] { worker = QThread::currentThread(); }, Qt::DirectConnection);
        manager.install();
        QTRY_COMPARE(listener.outcomes.size(), 1);
        QVERIFY(worker != nullptr && worker != QThread::currentThread());
        QVERIFY(listener.onGuiThread);
    }

    void canBeDestroyedWhileItUnpacks()
    {
        constexpr int files = 20'000;
        ZipBuilder builder = goodRuntime();
        for (int i = 0; i < files; ++i)
            builder.file("jdk-11.0.25+9-jre/lib/" + QByteArray::number(i), "x");
        serve(builder);
        auto manager = std::make_unique<RuntimeManager>();
        const Listener listener(*manager);
        manager->install();
        const QString unpacking = base() + u"/jdk-11.0.25+9-jre";
        QTRY_VERIFY(QFileInfo::exists(QString(unpacking + u"/lib/0")));
        QElapsedTimer timer;
        timer.start();
        manager.reset();
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));

        QVERIFY(namesIn(QString(unpacking + u"/lib")).size() < files);
        QVERIFY(!RuntimeManager::isInstalled());
        QVERIFY(!QFileInfo::exists(QString(base() + u"/jre-download.zip")));
        // The next attempt is not disturbed by what was left behind.
        serve(goodRuntime());
        QCOMPARE(installed(), QString());
        QVERIFY(RuntimeManager::isInstalled());
    }

private:
    static QString base() { return QString(Settings::get().gameDir() + u"/runtime"); }

    void serve(const ZipBuilder& archive)
    {
        m_server->answer(apiPath, HttpAnswer::ok(archive.bytes()));
    }

    static void installOldRuntime() { writeFile(RuntimeManager::javaExe(), "old"); }

    // The one outcome of one install; empty when it succeeded.
    static QString installed()
    {
        RuntimeManager manager;
        const Listener listener(manager);
        manager.install();
        if (!QTest::qWaitFor([&listener] { return !listener.outcomes.isEmpty(); }, 20'000))
            return QStringLiteral("no outcome");
        QCoreApplication::processEvents();
        return listener.outcomes.size() == 1 ? listener.outcomes.constFirst()
                                             : listener.outcomes.join(u" and ");
    }

    TestAuthority m_authority;
    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<TunnelProxy> m_proxy;
    std::unique_ptr<QTemporaryDir> m_gameDir;
};

QTEST_GUILESS_MAIN(TestRuntimeManager)
#include "tst_runtime_manager.moc"
