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
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

const QByteArray apiHost = "api.adoptium.net";
const QByteArray apiPath = "/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse";

std::atomic<bool> placeIsTaken = false;
std::atomic<bool> namesCannotBeExchanged = false;
std::atomic<bool> archiveStaysAWhile = false;
std::atomic<bool> removingArchive = false;

} // namespace

// These stand before the C library's: an archive that takes long to remove, a file system that
// cannot exchange two names, a place that nothing can be moved to.
extern "C" int unlink(const char* path) noexcept
{
    if (archiveStaysAWhile && std::strstr(path, "/jre-download.zip")) {
        removingArchive = true;
        usleep(500'000);
    }
    return unlinkat(AT_FDCWD, path, 0);
}

extern "C" int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                         unsigned flags) noexcept
{
    if (!namesCannotBeExchanged)
        return static_cast<int>(
            syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, flags));
    errno = EINVAL;
    return -1;
}

extern "C" int rename(const char* from, const char* to) noexcept
{
    const bool isUnpacked = std::strstr(from, "/runtime/jdk") != nullptr;
    if (!placeIsTaken || !isUnpacked)
        return renameat(AT_FDCWD, from, AT_FDCWD, to);
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
        serveRuntime();
    }

    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        Settings::get().setGameDir(m_home->filePath(QStringLiteral("game")));
    }

    void cleanup()
    {
        placeIsTaken = namesCannotBeExchanged = archiveStaysAWhile = removingArchive = false;
    }

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
        placeIsTaken = namesCannotBeExchanged = true;
        QCOMPARE(outcomes(), QStringList{QStringLiteral("Could not finalize runtime install")});
        QCOMPARE(contentOf(RuntimeManager::javaExe()), QByteArray("old"));
        QVERIFY(!namesIn(base()).contains(u"jre-11.old"));
    }

    void replacesWhereNamesCannotBeExchanged()
    {
        writeFile(RuntimeManager::javaExe(), "old");
        namesCannotBeExchanged = true;
        QCOMPARE(outcomes(), QStringList{QString()});
        QVERIFY(contentOf(RuntimeManager::javaExe()).contains("new"));
        QCOMPARE(namesIn(base()), QStringList{QStringLiteral("jre-11")});
    }

    // Somebody who looks while one takes the other's place.
    void isNeverMissing()
    {
        QCOMPARE(outcomes(), QStringList{QString()});
        const QByteArray java = QFile::encodeName(RuntimeManager::javaExe());
        std::atomic<bool> over = false;
        std::atomic<int> missing = 0;
        std::thread looker([&] {
            while (!over) {
                struct stat info = {};
                missing += stat(java.constData(), &info) != 0;
            }
        });
        for (int i = 0; i < 20; ++i)
            outcomes();
        over = true;
        looker.join();
        QCOMPARE(missing, 0);
    }

    // Killed between its two steps, where names cannot be exchanged.
    void restoresTheRuntimeOfAKilledReplacement()
    {
        writeFile(QString(base() + u"/jre-11.old/bin/java"), "old");
        m_server->answer(apiPath, HttpAnswer::ok("no archive"));
        const QStringList reported = outcomes();
        serveRuntime();
        QCOMPARE(reported, QStringList{QStringLiteral("Could not extract Java runtime")});
        QCOMPARE(contentOf(RuntimeManager::javaExe()), QByteArray("old"));
        QCOMPARE(namesIn(base()), QStringList{QStringLiteral("jre-11")});
    }

    void removesWhatAKilledReplacementLeft()
    {
        writeFile(RuntimeManager::javaExe(), "current");
        writeFile(QString(base() + u"/jre-11.old/bin/java"), "old");
        writeFile(QString(base() + u"/jre-11.removed/lib/half"), "half");
        QCOMPARE(outcomes(), QStringList{QString()});
        QVERIFY(contentOf(RuntimeManager::javaExe()).contains("new"));
        QCOMPARE(namesIn(base()), QStringList{QStringLiteral("jre-11")});
    }

    // What is being removed is no runtime any more.
    void restoresNoHalfRuntime()
    {
        writeFile(QString(base() + u"/jre-11.removed/bin/java"), "half");
        m_server->answer(apiPath, HttpAnswer::ok("no archive"));
        outcomes();
        serveRuntime();
        QVERIFY(!RuntimeManager::isInstalled());
    }

    void takesNoLinkForTheRuntime()
    {
        writeFile(RuntimeManager::javaExe(), "old");
        ZipBuilder archive;
        archive.file("real/bin/java", "new", 0755).link("jdk-11", "real");
        m_server->answer(apiPath, HttpAnswer::ok(archive.bytes()));
        const QStringList reported = outcomes();
        serveRuntime();
        QCOMPARE(reported, QStringList{QStringLiteral("Runtime archive had unexpected layout")});
        QCOMPARE(contentOf(RuntimeManager::javaExe()), QByteArray("old"));
    }

    void callsAnArchiveWithoutEntriesAnUnexpectedLayout()
    {
        m_server->answer(apiPath, HttpAnswer::ok(ZipBuilder().bytes()));
        const QStringList reported = outcomes();
        serveRuntime();
        QCOMPARE(reported, QStringList{QStringLiteral("Runtime archive had unexpected layout")});
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
    static QString base() { return QString(Settings::get().gameDir() + u"/runtime"); }

    void serveRuntime()
    {
        const ZipBuilder runtime = ZipBuilder::runtime("jdk-11.0.25+9-jre", "echo new");
        m_server->answer(apiPath, HttpAnswer::ok(runtime.bytes()));
    }

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
