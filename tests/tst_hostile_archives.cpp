#include "app/settings.h"
#include "backend/catalogue/archives.h"
#include "services/runtime_manager.h"
#include "services/tree_removal.h"
#include "services/worker.h"
#include "services/zip.h"
#include "tests/hostile/archives.h"
#include "tests/support/costs.h"
#include "tests/support/files.h"
#include "tests/support/heartbeat.h"
#include "tests/support/http_server.h"
#include "tests/support/loopback_deployment.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

using Verdict = HostileArchive::Verdict;

const QByteArray runtimePath = "/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse";
const QByteArray runtimeTop = "jdk-11/";
const auto launcherName = u"TessellanLauncher.exe"_s;
constexpr qint64 mega = 1024 * 1024;
// Far above what was measured under the sanitizers, far below what a player would call frozen.
constexpr qint64 maxGapMs = 500;
constexpr qint64 maxClosingMs = 2'000;
// The archives themselves, several copies of each, and 256 MB that the sanitizers keep of what was
// freed are most of it.
constexpr qint64 maxGrowthBytes = 1'200 * mega;

int modeOf(const QString& path)
{
    struct stat info = {};
    return lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : -1;
}

} // namespace

// Every hostile archive as a runtime, as an update of the launcher and as what somebody publishes.
class TestHostileArchives : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void initTestCase()
    {
        loopback_deployment::setRuntimeOrigin(m_server.origin());
        m_peakAtStart = costs::peakBytes();
    }

    void init()
    {
        // In memory where that can be had: how long a disk takes is not what is tested.
        m_home = std::make_unique<QTemporaryDir>(u"/dev/shm/tst_hostile_archives"_s);
        if (!m_home->isValid())
            m_home = std::make_unique<QTemporaryDir>();
        writeFile(path(u"outside/precious"_s), "precious");
        Settings::get().setGameDir(path(u"game"_s));
    }

    void cleanup()
    {
        removeTree(QFile::encodeName(path(u"game"_s)));
        removeTree(QFile::encodeName(path(u"app"_s)));
    }

    void cleanupTestCase()
    {
        qInfo("largest gap %lld ms of work, slowest closing %lld ms, memory grew by %lld MB",
              m_gapMs, m_closingMs, (costs::peakBytes() - m_peakAtStart) / mega);
        QVERIFY(costs::peakBytes() - m_peakAtStart < maxGrowthBytes);
    }

    void isJudgedAlikeByEverybody_data()
    {
        QTest::addColumn<int>("index");
        for (int i = 0; i < m_archives.size(); ++i)
            QTest::newRow(m_archives[i].name) << i;
    }

    void isJudgedAlikeByEverybody()
    {
        QFETCH(int, index);
        const HostileArchive& hostile = m_archives.at(index);
        asRuntime(hostile);
        asLauncher(hostile);
        QCOMPARE(namesIn(m_home->path()), expectedNames());
        QCOMPARE(namesIn(path(u"outside"_s)), QStringList{u"precious"_s});
        QVERIFY(!QFileInfo::exists(u"/tmp/tessellan-evil"_s));
    }

    void bringsNoNameThatTheLauncherNeeds_data()
    {
        QTest::addColumn<QByteArray>("name");
        for (const char* name : {"jre-11/bin/java", "JRE-11/x", "jre-11.old/bin/java",
                                 "jre-11.removed/x", "jre-download.zip", "jre-install.lock"})
            QTest::newRow(name) << QByteArray(name);
    }

    void bringsNoNameThatTheLauncherNeeds()
    {
        QFETCH(QByteArray, name);
        installOld();
        const QByteArray archive = goodRuntime().file(name, "evil").bytes();
        QCOMPARE(installed(archive), u"Could not extract Java runtime"_s);
        QCOMPARE(contentOf(RuntimeManager::javaExe()), QByteArray("old"));
        QVERIFY(!archives::runtimeAsZip(written(archive), path(u"packed.zip"_s)));
    }

    void bringsNoFilesOfTheUpdateItself()
    {
        const QByteArray archive = goodLauncher().file(".Tessellan-Update/entry", "x").bytes();
        QVERIFY(!unpackedOver(archive));
        QVERIFY(!archives::checkLauncherArchive(written(archive)));
    }

private:
    static ZipBuilder goodRuntime() { return ZipBuilder::runtime("jdk-11", "echo new"); }
    static ZipBuilder goodLauncher()
    {
        return ZipBuilder()
            .file("TessellanLauncher.exe", "build")
            .directory("bin")
            .file("release", "x");
    }

    QString path(const QString& name) const { return m_home->filePath(name); }
    QStringList expectedNames() const
    {
        return {u"app"_s, u"game"_s, u"outside"_s, u"written.zip"_s};
    }
    static void installOld() { writeFile(RuntimeManager::javaExe(), "old"); }

    QString written(const QByteArray& archive) const
    {
        writeFile(path(u"written.zip"_s), archive);
        return path(u"written.zip"_s);
    }

    void asRuntime(const HostileArchive& hostile)
    {
        const QByteArray archive = hostile.make(goodRuntime(), runtimeTop);
        installOld();
        const QString base = QFileInfo(RuntimeManager::runtimeDir()).absolutePath();
        QVERIFY(QFile::setPermissions(base, QFile::Permissions::fromInt(0x7750)));
        const int baseMode = modeOf(base);
        const QString error = installed(archive);
        const bool taken = error.isEmpty();
        QCOMPARE(modeOf(base), baseMode);
        QVERIFY(hostile.verdict != Verdict::Refused || !taken);
        QVERIFY2((hostile.verdict != Verdict::Taken && hostile.verdict != Verdict::AsRuntimeOnly) ||
                     taken,
                 qPrintable(error));
        QVERIFY(contentOf(RuntimeManager::javaExe()) == "old" ? !taken : isWhole());
        QVERIFY(!QFileInfo::exists(QString(base + u"/jre-download.zip")));
        QVERIFY(!QFileInfo::exists(QString(base + u"/jre-install.lock")));

        const auto published = archives::runtimeAsZip(written(archive), path(u"packed.zip"_s));
        QVERIFY2(bool(published) == taken,
                 qPrintable(published ? error : published.refusal().error));
        closesAtOnce(archive);
        // Whatever it left, the next honest one takes its place.
        QCOMPARE(installed(goodRuntime().bytes()), QString());
        QVERIFY(isWhole());
    }

    void asLauncher(const HostileArchive& hostile)
    {
        const QByteArray archive = hostile.make(goodLauncher(), {});
        const bool taken = unpackedOver(archive);
        QVERIFY(hostile.verdict != Verdict::Refused || !taken);
        QVERIFY(hostile.verdict != Verdict::AsRuntimeOnly || !taken);
        QVERIFY(hostile.verdict != Verdict::Taken || taken);
        const auto published = archives::checkLauncherArchive(written(archive));
        QVERIFY2(bool(published) == taken,
                 qPrintable(published ? u"published"_s : published.refusal().error));
    }

    // The window closes at some moment of the unpacking.
    void closesAtOnce(const QByteArray& archive)
    {
        m_server.answer(runtimePath, HttpAnswer::ok(archive));
        auto manager = std::make_unique<RuntimeManager>();
        const QSignalSpy failed(manager.get(), &RuntimeManager::installFailed);
        const QSignalSpy finished(manager.get(), &RuntimeManager::installFinished);
        manager->install();
        const QString zip =
            QFileInfo(RuntimeManager::runtimeDir()).absolutePath() + u"/jre-download.zip";
        QVERIFY(QTest::qWaitFor(
            [&] { return QFileInfo::exists(zip) || !failed.isEmpty() || !finished.isEmpty(); }));
        QTest::qSleep(QRandomGenerator::global()->bounded(60));
        QElapsedTimer timer;
        timer.start();
        manager.reset();
        m_closingMs = std::max(m_closingMs, timer.elapsed());
        QVERIFY2(timer.elapsed() < maxClosingMs, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(contentOf(RuntimeManager::javaExe()) == "old" || isWhole());
    }

    static bool isWhole()
    {
        return contentOf(RuntimeManager::javaExe()) == "#!/bin/sh\necho new\n" &&
               QFileInfo::exists(QString(RuntimeManager::runtimeDir() + u"/release"));
    }

    QString installed(const QByteArray& archive)
    {
        m_server.answer(runtimePath, HttpAnswer::ok(archive));
        RuntimeManager manager;
        const QSignalSpy failed(&manager, &RuntimeManager::installFailed);
        const QSignalSpy finished(&manager, &RuntimeManager::installFinished);
        const Heartbeat heartbeat;
        manager.install();
        if (!QTest::qWaitFor([&] { return !failed.isEmpty() || !finished.isEmpty(); }, 60'000))
            return u"no outcome"_s;
        takeGap(heartbeat);
        return failed.isEmpty() ? QString() : failed.constFirst().constFirst().toString();
    }

    // As an update unpacks it: on a worker, beside files that stand there.
    bool unpackedOver(const QByteArray& archive)
    {
        const QString app = path(u"app"_s);
        QDir().mkpath(app);
        writeFile(app + u"/release", "old release");
        chmod(QFile::encodeName(app).constData(), 0750);
        auto unpacking = std::make_unique<zip::UnpackingOver>(launcherName, archive, app);
        auto state = zip::UnpackingOver::State::Working;
        Worker worker;
        const Heartbeat heartbeat;
        worker.run(
            [&unpacking](const std::stop_token& stop) {
                auto reached = unpacking->step();
                while (reached == zip::UnpackingOver::State::Working && !stop.stop_requested())
                    reached = unpacking->step();
                return reached;
            },
            [&state](zip::UnpackingOver::State reached) { state = reached; });
        const bool ended = QTest::qWaitFor(
            [&state] { return state != zip::UnpackingOver::State::Working; }, 60'000);
        const bool taken = ended && unpacking->kept() == QByteArray("build");
        unpacking.reset();
        takeGap(heartbeat);
        [&] {
            QCOMPARE(modeOf(app), 0750);
            QVERIFY(!QFileInfo::exists(QString(app + u"/.tessellan-update")));
        }();
        return taken;
    }

    void takeGap(const Heartbeat& heartbeat)
    {
        m_gapMs = std::max(m_gapMs, heartbeat.longestProcessorMs());
        QVERIFY2(heartbeat.longestProcessorMs() < maxGapMs,
                 qPrintable(QString::number(heartbeat.longestProcessorMs())));
    }

    const QList<HostileArchive> m_archives = hostileArchives();
    HttpServer m_server;
    std::unique_ptr<QTemporaryDir> m_home;
    qint64 m_peakAtStart = 0;
    qint64 m_gapMs = 0;
    qint64 m_closingMs = 0;
};

QTEST_GUILESS_MAIN(TestHostileArchives)
#include "tst_hostile_archives.moc"
