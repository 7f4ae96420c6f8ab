#include "app/settings.h"
#include "services/runtime_manager.h"
#include "services/turn.h"
#include "tests/support/files.h"
#include "tests/support/heartbeat.h"
#include "tests/support/http_server.h"
#include "tests/support/loopback_deployment.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <array>
#include <csignal>
#include <memory>

#include <sys/resource.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QByteArray runtimePath = "/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse";
constexpr int files = 400;

// Every file says which of the two builds it belongs to; their directories have one name.
ZipBuilder build(const QByteArray& name)
{
    ZipBuilder zip;
    zip.file("jdk-11/bin/java", name, 0755);
    for (int i = 0; i < files; ++i)
        zip.file("jdk-11/lib/" + QByteArray::number(i), name);
    return zip.file("jdk-11/only-in-" + name, name);
}

QString libraries()
{
    return QString(RuntimeManager::runtimeDir() + u"/lib");
}

// Whether every file of one build is there, and none of another.
bool isWhole()
{
    const QByteArray name = contentOf(RuntimeManager::javaExe());
    if (name != "one" && name != "other")
        return false;
    const QStringList found = namesIn(libraries());
    for (const QString& file : found) {
        if (contentOf(QString(libraries() + u'/' + file)) != name)
            return false;
    }
    const QStringList top{u"bin"_s, u"lib"_s, QString(u"only-in-"_s + QString::fromUtf8(name))};
    return found.size() == files && namesIn(RuntimeManager::runtimeDir()) == top;
}

// What a manager reports, taken on the GUI thread; it reports from its worker.
class Outcomes : public QObject
{
    Q_OBJECT

public:
    explicit Outcomes(const RuntimeManager& manager)
    {
        connect(&manager, &RuntimeManager::installFinished, this, [this] { ++finished; });
        connect(&manager, &RuntimeManager::installFailed, this,
                [this](const QString& error) { failed.append(error); });
    }

    int finished = 0;
    QStringList failed;
};

} // namespace

// What several unpackings of the runtime at once, in one launcher and in two, do to each other.
class TestRuntimeTurns : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void initTestCase()
    {
        loopback_deployment::setRuntimeOrigin(m_server.origin());
        m_server.answer(runtimePath, [this](const HttpRequest&) {
            return HttpAnswer::ok(m_builds.at(m_answers++ % m_builds.size()));
        });
    }

    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        // For a launcher that runs as nobody.
        const QString way = QFileInfo(m_home->path()).absolutePath();
        for (const QString& place : {throwaway_home::path(), way, m_home->path()})
            QVERIFY(QFile::setPermissions(place, QFile::Permissions::fromInt(0x7777)));
        Settings::get().setGameDir(m_home->filePath(u"game"_s));
    }

    void impatientClicksLeaveAWholeRuntime()
    {
        RuntimeManager manager;
        RuntimeManager another;
        const Outcomes outcomes(manager);
        const Outcomes others(another);
        for (int i = 0; i < 4; ++i) {
            manager.install();
            another.install();
        }
        QTRY_COMPARE_WITH_TIMEOUT(outcomes.finished + others.finished, 8, 60'000);
        QVERIFY(isWhole());
        QCOMPARE(namesIn(base()), QStringList{u"jre-11"_s});
    }

    void twoLaunchersLeaveAWholeRuntime()
    {
        std::array<QProcess, 2> launchers;
        for (QProcess& launcher : launchers)
            start(launcher, 8);
        for (QProcess& launcher : launchers) {
            QTRY_COMPARE_WITH_TIMEOUT(launcher.state(), QProcess::NotRunning, 60'000);
            QCOMPARE(launcher.exitCode(), 0);
            QCOMPARE(launcher.readAllStandardOutput(), QByteArray(9, '\n'));
        }
        QVERIFY(isWhole());
        QCOMPARE(namesIn(base()), QStringList{u"jre-11"_s});
    }

    void killedLaunchersLeaveNoHalfRuntime()
    {
        constexpr int rounds = 30;
        const quint32 seed = QRandomGenerator::global()->generate();
        qInfo("seed %u", seed);
        QRandomGenerator random(seed);
        int installed = 0;
        for (int round = 0; round < rounds; ++round) {
            std::array<QProcess, 2> launchers;
            for (QProcess& launcher : launchers)
                start(launcher, 1'000);
            const auto before = m_answers;
            QTRY_VERIFY(m_answers > before + 1);
            for (QProcess& launcher : launchers) {
                QTest::qWait(random.bounded(250));
                launcher.kill();
                QVERIFY(launcher.waitForFinished());
                QCOMPARE(launcher.exitStatus(), QProcess::CrashExit);
            }
            installed += RuntimeManager::isInstalled();
            QVERIFY(!RuntimeManager::isInstalled() || isWhole());
        }
        QVERIFY2(installed > 0, "killed too early to see anything");
        // Nor does what they left disturb the next one.
        QProcess launcher;
        start(launcher, 1);
        QTRY_COMPARE_WITH_TIMEOUT(launcher.state(), QProcess::NotRunning, 60'000);
        QCOMPARE(launcher.readAllStandardOutput(), QByteArray("\n\n"));
        QVERIFY(isWhole());
        QCOMPARE(namesIn(base()), QStringList{u"jre-11"_s});
    }

    void waitingForATurnCanBeCancelled()
    {
        QVERIFY(QDir().mkpath(base()));
        Turn turn(QString(base() + u"/jre-install.lock"));
        QVERIFY(turn.wait([] { return false; }));
        auto manager = std::make_unique<RuntimeManager>();
        const Outcomes outcomes(*manager);
        const Heartbeat heartbeat;
        manager->install();
        const QString archive = base() + u"/jre-download.zip";
        QTRY_VERIFY(QFileInfo::exists(archive));
        // The worker is asleep between two attempts; the window is not.
        QVERIFY(!QTest::qWaitFor(
            [&] { return !outcomes.failed.isEmpty() || outcomes.finished > 0; }, 300));
        QVERIFY2(heartbeat.longestMs() < 250, qPrintable(QString::number(heartbeat.longestMs())));
        QElapsedTimer timer;
        timer.start();
        manager.reset();
        QVERIFY2(timer.elapsed() < 1'000, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(!QFileInfo::exists(archive));
        QVERIFY(!RuntimeManager::isInstalled());
    }

    void whoWaitsGoesOnWhenTheTurnIsGivenBack()
    {
        QVERIFY(QDir().mkpath(base()));
        auto turn = std::make_unique<Turn>(QString(base() + u"/jre-install.lock"));
        QVERIFY(turn->wait([] { return false; }));
        RuntimeManager manager;
        const Outcomes outcomes(manager);
        manager.install();
        QTRY_VERIFY(QFileInfo::exists(QString(base() + u"/jre-download.zip")));
        turn.reset();
        QTRY_COMPARE(outcomes.finished, 1);
        QVERIFY(isWhole());
    }

    void replacesWhatItsOwnerMayNotWrite()
    {
        const auto restore = m_builds;
        for (QByteArray& archive : m_builds)
            archive = build(&archive == &m_builds[0] ? "one" : "other")
                          .directory("jdk-11/lib", 0555)
                          .directory("jdk-11/bin", 0555)
                          .directory("jdk-11", 0555)
                          .bytes();
        QProcess launcher;
        start(launcher, 3, true);
        QTRY_COMPARE_WITH_TIMEOUT(launcher.state(), QProcess::NotRunning, 60'000);
        m_builds = restore;
        QCOMPARE(launcher.exitCode(), 0);
        QCOMPARE(launcher.readAllStandardOutput(), QByteArray("\n\n\n\n"));
        QVERIFY(isWhole());
        QCOMPARE(namesIn(base()), QStringList{u"jre-11"_s});
    }

    // A file-size limit of the process stands for the full disk.
    void noticesAShortWrite()
    {
        const auto previous = std::signal(SIGXFSZ, SIG_IGN);
        rlimit before = {};
        getrlimit(RLIMIT_FSIZE, &before);
        RuntimeManager manager;
        const Outcomes outcomes(manager);
        const rlimit tight = {4'096, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tight);
        manager.install();
        const bool ended = QTest::qWaitFor([&] { return !outcomes.failed.isEmpty(); }, 20'000);
        setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, previous);
        QVERIFY(ended);
        const QString archive = base() + u"/jre-download.zip";
        QCOMPARE(outcomes.failed.constFirst(), QString(u"Cannot write "_s + archive));
        // The disk has better uses for it.
        QVERIFY(!QFileInfo::exists(archive));
    }

private:
    static QString base() { return QString(Settings::get().gameDir() + u"/runtime"); }

    void start(QProcess& launcher, int times, bool asNobody = false) const
    {
        QStringList arguments{Settings::get().gameDir(), m_server.origin(), QString::number(times)};
        if (asNobody && geteuid() == 0)
            arguments.append(u"nobody"_s);
        launcher.start(QStringLiteral(RUNTIME_PROBE), arguments);
        QVERIFY(launcher.waitForStarted());
    }

    HttpServer m_server;
    std::array<QByteArray, 2> m_builds = {build("one").bytes(), build("other").bytes()};
    std::size_t m_answers = 0;
    std::unique_ptr<QTemporaryDir> m_home;
};

QTEST_GUILESS_MAIN(TestRuntimeTurns)
#include "tst_runtime_turns.moc"
