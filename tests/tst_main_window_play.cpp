#include "app/settings.h"
#include "profiles/profile_manager.h"
#include "services/runtime_manager.h"
#include "tests/support/loopback_deployment.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "tests/support/zip_builder.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QEvent>
#include <QFile>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTest>
#include <QThread>

namespace {

const QByteArray runtimePath = "/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse";
constexpr int roadMs = 60'000; // a download, an unpacking and a JVM under sanitizers

QByteArray contentOf(const QString& name)
{
    QFile file(QStringLiteral(TEST_GAME_DIR "/") + name);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(file.fileName()));
    return file.readAll();
}

QString systemJava()
{
    return QStandardPaths::findExecutable(QStringLiteral("java"));
}

// Every text that the status line showed, in order. The label announces each by its tool tip.
class StatusRecorder : public QObject
{
public:
    explicit StatusRecorder(QLabel* label) : m_label(label) { label->installEventFilter(this); }

    QStringList texts;

    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::ToolTipChange) {
            if (QThread::currentThread() != m_label->thread())
                qFatal("the window was touched by another thread");
            if (texts.isEmpty() || texts.last() != m_label->text())
                texts.append(m_label->text());
        }
        return false;
    }

private:
    QLabel* m_label;
};

} // namespace

// From one press of PLAY to the running game: real downloads, a real runtime, a real JVM.
class TestMainWindowPlay : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->storeSession();
        loopback_deployment::setRuntimeOrigin(m_driver->server().origin());
    }
    void cleanup() { m_driver.reset(); }

    void leadsFromNothingToTheGameByOneClick()
    {
        serveRuntime(contentOf(QStringLiteral("runtime.zip")));
        serveGame({"1.0"});
        store("Mine", "1.0", QStringLiteral("-Dexit=3  -Dfoo=1"));
        m_driver->openAndWait();
        StatusRecorder statuses(m_driver->statusLabel());
        QSignalSpy exited(&m_driver->versions(), &VersionManager::gameExited);

        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), QStringLiteral("Downloading Java runtime (one-time)..."));
        QVERIFY(!m_driver->play()->isEnabled());
        QVERIFY(m_driver->findWidget("progressBar")->isVisible());
        QCOMPARE(Settings::get().lastVersion(), QStringLiteral("1.0"));
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 1, roadMs);

        QCOMPARE(statuses.texts,
                 (QStringList{QStringLiteral("Downloading Java runtime (one-time)..."),
                              QStringLiteral("Java runtime installed"),
                              QStringLiteral("Downloading 1.0..."),
                              QStringLiteral("1.0 installed - launching..."),
                              QStringLiteral("Game exited with code 3 - see Console")}));
        QVERIFY(m_driver->play()->isEnabled());
        QVERIFY(m_driver->findWidget("progressBar")->isHidden());
        QVERIFY(m_driver->findWidget("console")->isVisible());
        const QString jar = m_driver->versions().jarPath(QStringLiteral("1.0"));
        QCOMPARE(said("started with "),
                 QStringList() << RuntimeManager::javaExe() << QStringLiteral("-Xms64m")
                               << QStringLiteral("-Xmx128m") << QStringLiteral("-Dexit=3")
                               << QStringLiteral("-Dfoo=1") << QStringLiteral("-jar") << jar
                               << sessionArguments());
        QCOMPARE(said("told "), sessionArguments());
        QCOMPARE(said("in "),
                 QStringList{QFileInfo(Settings::get().gameDir()).canonicalFilePath()});
        QCOMPARE(m_driver->consoleLines().last(), QStringLiteral("process exited (code 3)"));
        QCOMPARE(m_driver->selectorTexts().last(), QStringLiteral("1.0  (installed)"));

        // The second press downloads nothing.
        m_driver->server().forgetRequests();
        statuses.texts.clear();
        m_driver->click(m_driver->play());
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 2, roadMs);
        QCOMPARE(statuses.texts, (QStringList{QStringLiteral("Launched 1.0"),
                                              QStringLiteral("Game exited with code 3 - see "
                                                             "Console")}));
        QVERIFY(m_driver->server().requests().isEmpty());
        QCOMPARE(m_driver->window().findChildren<RuntimeManager*>().size(), 1);
    }

    void playsWhatIsInstalledWithoutANetwork()
    {
        serveGame({"1.0"}, {{QStringLiteral("Old news"), {}, {}}});
        Settings::get().setJavaPath(systemJava());
        m_driver->openAndWait();
        playToTheEnd();
        m_driver->close();
        m_driver->server().goOffline();

        m_driver->openAndWait();
        QCOMPARE(m_driver->status(), QStringLiteral("Offline - using cached version list"));
        QCOMPARE(m_driver->selectorTexts(), QStringList{QStringLiteral("1.0  (installed)")});
        QCOMPARE(m_driver->find<QListWidget>("newsList")->item(0)->text(),
                 QStringLiteral("Old news"));
        // The server could not be asked about the session, which reads as a refusal.
        QTRY_VERIFY(m_driver->findWidget("usernameField")->isVisible());
        playToTheEnd();
        QCOMPARE(said("told "), QStringList());
    }

    void launchesABareVersionWithTheDefaultHeap()
    {
        serveGame({"1.0"});
        Settings::get().setJavaPath(systemJava());
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), QStringLiteral("Downloading 1.0..."));
        waitForExit(1);
        QCOMPARE(said("started with ").mid(1),
                 QStringList() << QStringLiteral("-Xms512m") << QStringLiteral("-Xmx2048m")
                               << QStringLiteral("-jar")
                               << m_driver->versions().jarPath(QStringLiteral("1.0"))
                               << sessionArguments());
        // Exit code 0 leaves the last words.
        QCOMPARE(m_driver->status(), QStringLiteral("1.0 installed - launching..."));
        QCOMPARE(m_driver->server().requestCount(runtimePath), 0);
    }

    void dropsLockedArgumentsWithoutAWord()
    {
        serveGame({"1.0"});
        Settings::get().setJavaPath(systemJava());
        store("Mine", "1.0", QStringLiteral("--token=stolen -jar -Dfoo=1"));
        m_driver->openAndWait();
        playToTheEnd();
        QCOMPARE(said("started with ").mid(1, 4),
                 (QStringList{QStringLiteral("-Xms64m"), QStringLiteral("-Xmx128m"),
                              QStringLiteral("-Dfoo=1"), QStringLiteral("-jar")}));
        QCOMPARE(said("told "), sessionArguments());
    }

    void passesNoSessionArgumentsWithoutASession()
    {
        serveGame({"1.0"});
        Settings::get().setJavaPath(systemJava());
        Settings::get().clearAuth();
        m_driver->openAndWait();
        QVERIFY(m_driver->play()->isHidden());
        QSignalSpy exited(&m_driver->versions(), &VersionManager::gameExited);
        QVERIFY(QMetaObject::invokeMethod(&m_driver->window(), "onPlayClicked"));
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 1, roadMs);
        QCOMPARE(said("told "), QStringList());
        QCOMPARE(said("started with ").size(), 5);
    }

    void asksForTheRuntimeOnlyForAnUnsetJavaPath_data()
    {
        QTest::addColumn<QString>("javaPath");
        QTest::addColumn<bool>("asks");
        QTest::newRow("java") << QStringLiteral("java") << true;
        QTest::newRow("empty") << QStringLiteral("") << true;
        QTest::newRow("other letter case") << QStringLiteral("Java") << false;
        QTest::newRow("a full path") << systemJava() << false;
        QTest::newRow("another program") << QStringLiteral("java-17") << false;
    }

    void asksForTheRuntimeOnlyForAnUnsetJavaPath()
    {
        QFETCH(QString, javaPath);
        QFETCH(bool, asks);
        serveGame({"1.0"});
        m_driver->server().answer(runtimePath, HttpAnswer::silence());
        Settings::get().setJavaPath(javaPath);
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        const QByteArray expected = asks ? runtimePath : QByteArray("/jars/1.0.jar");
        const QByteArray other = asks ? QByteArray("/jars/1.0.jar") : runtimePath;
        QTRY_COMPARE(m_driver->server().requestCount(expected), 1);
        QCOMPARE(m_driver->server().requestCount(other), 0);
    }

    void usesAnInstalledRuntimeWithoutAskingForIt()
    {
        serveGame({"1.0"});
        QVERIFY(QDir().mkpath(QFileInfo(RuntimeManager::javaExe()).absolutePath()));
        script(RuntimeManager::javaExe(), "echo mine; exit 4");
        m_driver->openAndWait();
        playToTheEnd();
        QVERIFY(m_driver->consoleLines().contains(QStringLiteral("mine")));
        QCOMPARE(m_driver->server().requestCount(runtimePath), 0);
        QCOMPARE(m_driver->status(), QStringLiteral("Game exited with code 4 - see Console"));
    }

    void showsWhyTheRuntimeDidNotCome_data()
    {
        QTest::addColumn<QByteArray>("archive");
        QTest::addColumn<QString>("status");
        QTest::newRow("no ZIP") << QByteArray("a tar.gz, say")
                                << QStringLiteral("Could not extract Java runtime");
        QTest::newRow("unexpected directory")
            << ZipBuilder::runtime("jre", "exit 0").bytes()
            << QStringLiteral("Runtime archive had unexpected layout");
        QTest::newRow("leaves the directory")
            << ZipBuilder::runtime("jdk-11", "exit 0").file("../evil", "evil").bytes()
            << QStringLiteral("Could not extract Java runtime");
        QTest::newRow("no java inside") << ZipBuilder().directory("jdk-11").bytes()
                                        << QStringLiteral("Could not finalize runtime install");
    }

    void showsWhyTheRuntimeDidNotCome()
    {
        QFETCH(QByteArray, archive);
        QFETCH(QString, status);
        serveRuntime(archive);
        serveGame({"1.0"});
        m_driver->openAndWait();
        // Every press that needs a runtime makes a manager of its own.
        for (int press = 1; press <= 2; ++press) {
            m_driver->click(m_driver->play());
            QTRY_COMPARE(m_driver->status(), status);
            QVERIFY(m_driver->play()->isEnabled());
            QVERIFY(m_driver->findWidget("progressBar")->isHidden());
            QCOMPARE(m_driver->window().findChildren<RuntimeManager*>().size(), press);
        }
        QVERIFY(!RuntimeManager::isInstalled());
        QVERIFY(!QFile::exists(Settings::get().gameDir() + u"/evil"));
        QCOMPARE(m_driver->server().requestCount("/jars/1.0.jar"), 0);
    }

    void showsANetworkFailureOfTheRuntimeBare()
    {
        serveGame({"1.0"});
        m_driver->server().answer(runtimePath, HttpAnswer::htmlError());
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        QTRY_VERIFY(m_driver->play()->isEnabled());
        QVERIFY(m_driver->status().startsWith(u"Runtime download failed: "));
    }

    void showsTheProgressOfTheRuntime()
    {
        serveGame({"1.0"});
        m_driver->server().answer(runtimePath, half());
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        QTRY_VERIFY(isUnderWay());
        QCOMPARE(m_driver->find<QProgressBar>("progressBar")->maximum(), 100);
    }

    void showsWhyAVersionDidNotCome_data()
    {
        QTest::addColumn<QByteArray>("jar");
        QTest::addColumn<int>("httpStatus");
        QTest::addColumn<QString>("status");
        QTest::newRow("another jar")
            << QByteArray("another") << 200
            << QStringLiteral("Download failed: Checksum mismatch — download corrupted");
        QTest::newRow("refused") << QByteArray("<html>") << 500
                                 << QStringLiteral("Download failed: Error transferring ");
    }

    void showsWhyAVersionDidNotCome()
    {
        QFETCH(QByteArray, jar);
        QFETCH(int, httpStatus);
        QFETCH(QString, status);
        serveGame({"1.0"});
        HttpAnswer answer = HttpAnswer::ok(jar);
        answer.status = httpStatus;
        m_driver->server().answer("/jars/1.0.jar", answer);
        Settings::get().setJavaPath(systemJava());
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        QTRY_VERIFY(m_driver->play()->isEnabled());
        QVERIFY2(m_driver->status().startsWith(status), qPrintable(m_driver->status()));
        QVERIFY(m_driver->findWidget("progressBar")->isHidden());
        QVERIFY(!m_driver->versions().isInstalled(QStringLiteral("1.0")));
        QVERIFY(m_driver->findWidget("console")->isHidden());
    }

    void saysThatItUpdatesAnInstalledVersion()
    {
        serveGame({"1.0"});
        Settings::get().setJavaPath(systemJava());
        installJar("1.0", "an older jar");
        m_driver->openAndWait();
        QCOMPARE(m_driver->selectorTexts(), QStringList{QStringLiteral("1.0  (update available)")});
        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), QStringLiteral("Updating 1.0..."));
        waitForExit(1);
        QCOMPARE(m_driver->selectorTexts(), QStringList{QStringLiteral("1.0  (installed)")});
    }

    void doesNothingForAVersionThatTheManifestDoesNotList()
    {
        serveGame({"1.0"});
        store("Old", "0.1", {});
        Settings::get().setJavaPath(systemJava());
        m_driver->openAndWait();
        const QString before = m_driver->status();
        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), before);
        QVERIFY(m_driver->play()->isEnabled());
        QVERIFY(m_driver->findWidget("progressBar")->isHidden());
        QCOMPARE(Settings::get().lastVersion(), QStringLiteral("0.1"));
    }

    void doesNothingForAProfileWithoutAVersion()
    {
        serveGame({"1.0"});
        store("Empty", "", {});
        m_driver->openAndWait();
        const QString before = m_driver->status();
        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), before);
        QCOMPARE(Settings::get().lastVersion(), QString());
    }

    void takesTheFirstOfTwoVersionsOfOneName()
    {
        const GameVersion first =
            m_driver->serveVersion(QStringLiteral("1.0"), contentOf(QStringLiteral("game.jar")));
        GameVersion second = first;
        second.url = m_driver->server().url(QStringLiteral("/second.jar"));
        m_driver->serveManifest({first, second});
        Settings::get().setJavaPath(systemJava());
        m_driver->openAndWait();
        playToTheEnd();
        QCOMPARE(m_driver->server().requestCount("/second.jar"), 0);
    }

    void launchesTheChoiceOfTheMomentAfterTheRuntimeCame()
    {
        serveRuntime(ZipBuilder::runtime("jdk-11", "echo ran \"$@\"").bytes());
        serveGame({"1.0", "2.0"});
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        m_driver->selector()->setCurrentIndex(1);
        waitForExit(1);
        QCOMPARE(Settings::get().lastVersion(), QStringLiteral("2.0"));
        QCOMPARE(m_driver->server().requestCount("/jars/1.0.jar"), 0);
    }

    // The version is the installed one's; the JVM arguments are those of the entry chosen now.
    void launchesTheInstalledVersionWithTheArgumentsOfTheMoment()
    {
        serveGame({"1.0", "2.0"});
        Settings::get().setJavaPath(systemJava());
        store("Mine", "1.0", {});
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        m_driver->selector()->setCurrentIndex(3);
        QCOMPARE(m_driver->selector()->currentData().toString(), QStringLiteral("version:2.0"));
        waitForExit(1);
        const QStringList started = said("started with ");
        QCOMPARE(started.mid(1, 2),
                 (QStringList{QStringLiteral("-Xms512m"), QStringLiteral("-Xmx2048m")}));
        QCOMPARE(started[4], m_driver->versions().jarPath(QStringLiteral("1.0")));
        // The refill that shows the new marks ends with the first entry, as every refill does.
        QCOMPARE(m_driver->selector()->currentIndex(), 0);
    }

    void saysThatJavaDidNotStart_data()
    {
        QTest::addColumn<QString>("javaPath");
        QTest::newRow("nothing there") << QStringLiteral("/nowhere/java");
        QTest::newRow("a directory") << QStringLiteral("/usr");
    }

    void saysThatJavaDidNotStart()
    {
        QFETCH(QString, javaPath);
        serveGame({"1.0"});
        Settings::get().setJavaPath(javaPath);
        m_driver->openAndWait();
        const auto expected = QStringLiteral("Failed to start java — check java path in settings");
        m_driver->click(m_driver->play());
        QTRY_COMPARE(m_driver->status(), expected);
        QCOMPARE(m_driver->selectorTexts(), QStringList{QStringLiteral("1.0  (installed)")});
        QVERIFY(m_driver->play()->isEnabled());
        QVERIFY(m_driver->consoleLines().last().startsWith(u"FAILED TO START: "));
        m_driver->click(m_driver->nav("Settings"));
        m_driver->click("settingsCancelButton");
        Q_EMIT m_driver->versions().gameExited(1);
        m_driver->click(m_driver->play());
        QTRY_COMPARE(m_driver->status(), expected);
    }

    void survivesTheWindowsEnd_data()
    {
        QTest::addColumn<QByteArray>("stage");
        QTest::newRow("while the runtime downloads") << QByteArray("runtime");
        QTest::newRow("while the runtime unpacks") << QByteArray("unpack");
        QTest::newRow("while the version downloads") << QByteArray("version");
        QTest::newRow("while the game runs") << QByteArray("game");
    }

    void survivesTheWindowsEnd()
    {
        QFETCH(QByteArray, stage);
        serveGame({"1.0"});
        if (stage == "runtime") {
            m_driver->server().answer(runtimePath, half());
        } else if (stage == "unpack") {
            serveRuntime(bigRuntime());
        } else {
            const QString java = throwaway_home::path() + u"/java";
            script(java, "echo running; exec sleep 60");
            Settings::get().setJavaPath(java);
            if (stage == "version")
                m_driver->server().answer("/jars/1.0.jar", half());
        }
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        if (stage == "unpack")
            QTRY_VERIFY(QFile::exists(Settings::get().gameDir() + u"/runtime/jdk-11/filler/1"));
        else if (stage == "game")
            QTRY_VERIFY(m_driver->consoleLines().contains(QStringLiteral("running")));
        else
            QTRY_VERIFY(isUnderWay());

        QElapsedTimer clock;
        clock.start();
        m_driver->close();
        QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(!RuntimeManager::isInstalled());
        if (stage == "version")
            QVERIFY(!QFile::exists(VersionManager().jarPath(QStringLiteral("1.0"))));
        // What is left over does not stand in the way of the next start.
        m_driver->openAndWait();
        QVERIFY(m_driver->play()->isEnabled());
    }

private:
    void serveRuntime(const QByteArray& archive)
    {
        m_driver->server().answer(runtimePath, HttpAnswer::ok(archive));
    }

    void serveGame(const QStringList& ids, const QList<NewsItem>& news = {})
    {
        QList<GameVersion> versions;
        for (const QString& id : ids)
            versions.append(m_driver->serveVersion(id, contentOf(QStringLiteral("game.jar"))));
        m_driver->serveManifest(versions, news);
    }
    void serveGame(std::initializer_list<const char*> ids, const QList<NewsItem>& news = {})
    {
        QStringList names;
        for (const char* id : ids)
            names.append(QLatin1String(id));
        serveGame(names, news);
    }

    static void store(const char* name, const char* version, const QString& args)
    {
        QVERIFY(ProfileManager::get().save(
            {QLatin1String(name), QLatin1String(version), 64, 128, args}, QString(), nullptr));
    }

    static void script(const QString& path, const QByteArray& commands)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\n" + commands + "\n");
        QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }

    static void installJar(const char* id, const QByteArray& jar)
    {
        const QString path = VersionManager().jarPath(QLatin1String(id));
        QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(jar);
    }

    // A download that crawls from its middle on: the network layer reports progress only when
    // something arrives, and not more often than every tenth of a second.
    static HttpAnswer half()
    {
        HttpAnswer answer = HttpAnswer::ok(QByteArray(2 * 1024 * 1024, 'x'));
        answer.stallAfter = 1024 * 1024;
        answer.trickles = true;
        return answer;
    }

    bool isUnderWay()
    {
        const int value = m_driver->find<QProgressBar>("progressBar")->value();
        return value > 0 && value <= 50;
    }

    // Thousands of files: long enough to be interrupted, whatever the disk.
    static QByteArray bigRuntime()
    {
        ZipBuilder archive = ZipBuilder::runtime("jdk-11", "exit 0");
        archive.directory("jdk-11/filler");
        for (int i = 0; i < 20'000; ++i)
            archive.file("jdk-11/filler/" + QByteArray::number(i), "x");
        return archive.bytes();
    }

    void waitForExit(int count)
    {
        QSignalSpy exited(&m_driver->versions(), &VersionManager::gameExited);
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), count, roadMs);
    }

    void playToTheEnd()
    {
        QSignalSpy exited(&m_driver->versions(), &VersionManager::gameExited);
        QVERIFY(QMetaObject::invokeMethod(&m_driver->window(), "onPlayClicked"));
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 1, roadMs);
    }

    // What the game printed in lines that begin so.
    QStringList said(const char* prefix)
    {
        QStringList said;
        for (const QString& line : m_driver->consoleLines()) {
            if (line.startsWith(QLatin1String(prefix)))
                said.append(line.mid(qsizetype(qstrlen(prefix))));
        }
        return said;
    }

    QStringList sessionArguments()
    {
        return {QStringLiteral("--username"),   QStringLiteral("Ada"),
                QStringLiteral("--uuid"),       QStringLiteral("uuid-1"),
                QStringLiteral("--token"),      QStringLiteral("secret"),
                QStringLiteral("--authserver"), m_driver->server().origin()};
    }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowPlay)
#include "tst_main_window_play.moc"
