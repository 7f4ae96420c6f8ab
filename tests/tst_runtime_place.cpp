#include "app/settings.h"
#include "services/runtime_manager.h"
#include "tests/support/files.h"
#include "tests/support/http_server.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/tls.h"
#include "tests/support/zip_builder.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QByteArray apiHost = "api.adoptium.net";
const QByteArray apiPath = "/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse";

std::atomic<bool> javaStays = false;
std::atomic<bool> archiveStaysAWhile = false;
std::atomic<bool> removingArchive = false;

} // namespace

// Stands before the C library's: an old java that cannot be removed, an archive that takes long.
extern "C" int unlink(const char* path) noexcept
{
    if (archiveStaysAWhile && std::strstr(path, "/jre-download.zip")) {
        removingArchive = true;
        usleep(500'000);
    }
    if (!javaStays || !std::strstr(path, "/jre-11/bin/java"))
        return unlinkat(AT_FDCWD, path, 0);
    errno = EPERM;
    return -1;
}

// What becomes of what stands in the runtime's place.
class TestRuntimePlace : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void initTestCase()
    {
        m_authority.trust();
        m_server =
            std::make_unique<HttpServer>(m_authority.serverFor({QString::fromLatin1(apiHost)}));
        m_proxy = std::make_unique<TunnelProxy>();
        m_proxy->lead(apiHost + ":443", m_server->port());
        const ZipBuilder runtime = ZipBuilder::runtime("jdk-11.0.25+9-jre", "echo new");
        m_server->answer(apiPath, HttpAnswer::ok(runtime.bytes()));
    }

    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        Settings::get().setGameDir(m_home->filePath(QStringLiteral("game")));
    }

    void cleanup() { javaStays = archiveStaysAWhile = removingArchive = false; }

    void replacesALinkNotWhatItLeadsTo()
    {
        const QString elsewhere = m_home->filePath(QStringLiteral("elsewhere"));
        writeFile(QString(elsewhere + u"/precious"), "precious");
        writeFile(QString(Settings::get().gameDir() + u"/runtime/other"), "x");
        QVERIFY(QFile::link(elsewhere, RuntimeManager::runtimeDir()));
        QCOMPARE(outcomes(), QStringList{QString()});
        QCOMPARE(contentOf(QString(elsewhere + u"/precious")), QByteArray("precious"));
        QVERIFY(!QFileInfo(RuntimeManager::runtimeDir()).isSymLink());
        QVERIFY(contentOf(RuntimeManager::javaExe()).contains("new"));
    }

    void reportsAnOldRuntimeThatCannotBeReplaced()
    {
        writeFile(RuntimeManager::javaExe(), "old");
        javaStays = true;
        QCOMPARE(outcomes(), QStringList{QStringLiteral("Could not finalize runtime install")});
        QCOMPARE(contentOf(RuntimeManager::javaExe()), QByteArray("old"));
    }

    void unpacksNothingThatItCouldNotWrite()
    {
        const QString archive = Settings::get().gameDir() + u"/runtime/jre-download.zip";
        writeFile(QString(archive + u"/x"), "in the way");
        QCOMPARE(outcomes(), QStringList{QString(u"Cannot write " + archive)});
    }

    // Long enough for the one who waits to fall asleep, and to need waking.
    void canBeDestroyedWhileTheSystemTakesItsTime()
    {
        archiveStaysAWhile = true;
        auto manager = std::make_unique<RuntimeManager>();
        manager->install();
        QTRY_VERIFY(removingArchive);
        manager.reset();
        QVERIFY(!QFile::exists(QString(Settings::get().gameDir() + u"/runtime/jre-download.zip")));
    }

private:
    // Every outcome of one install; an empty text is a success.
    static QStringList outcomes()
    {
        auto manager = std::make_unique<RuntimeManager>();
        QStringList outcomes;
        QObject listener;
        connect(manager.get(), &RuntimeManager::installFinished, &listener,
                [&outcomes] { outcomes.append(QString()); });
        connect(manager.get(), &RuntimeManager::installFailed, &listener,
                [&outcomes](const QString& error) { outcomes.append(error); });
        manager->install();
        if (!QTest::qWaitFor([&outcomes] { return !outcomes.isEmpty(); }, 20'000))
            return {QStringLiteral("no outcome")};
        manager.reset(); // waits for what it still unpacks
        QCoreApplication::processEvents();
        return outcomes;
    }

    TestAuthority m_authority;
    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<TunnelProxy> m_proxy;
    std::unique_ptr<QTemporaryDir> m_home;
};

QTEST_GUILESS_MAIN(TestRuntimePlace)
#include "tst_runtime_place.moc"
