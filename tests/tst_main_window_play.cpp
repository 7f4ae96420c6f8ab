#include "app/settings.h"
#include "services/runtime_manager.h"
#include "tests/support/play_driver.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/zip_builder.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QComboBox>
#include <QDir>
#include <QEvent>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QToolButton>

namespace {

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
        m_driver = std::make_unique<PlayDriver>();
        m_driver->storeSession();
    }
    void cleanup() { m_driver.reset(); }

    void leadsFromNothingToTheGameByOneClick()
    {
        m_driver->serveRuntime(PlayDriver::contentOf(QStringLiteral("runtime.zip")));
        m_driver->serveGame({"1.0"});
        PlayDriver::store("Mine", "1.0", QStringLiteral("-Dexit=3  -Dfoo=1"));
        m_driver->openAndWait();
        StatusRecorder statuses(m_driver->statusLabel());
        QSignalSpy exited(&m_driver->versions(), &VersionManager::gameExited);

        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), QStringLiteral("Downloading Java runtime (one-time)..."));
        QVERIFY(!m_driver->play()->isEnabled());
        QVERIFY(m_driver->findWidget("progressBar")->isVisible());
        QCOMPARE(Settings::get().lastVersion(), QStringLiteral("1.0"));
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 1, PlayDriver::roadMs);

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
        QCOMPARE(m_driver->said("started with "),
                 QStringList() << RuntimeManager::javaExe() << QStringLiteral("-Xms64m")
                               << QStringLiteral("-Xmx128m") << QStringLiteral("-Dexit=3")
                               << QStringLiteral("-Dfoo=1") << QStringLiteral("-jar") << jar
                               << m_driver->sessionArguments());
        QCOMPARE(m_driver->said("told "), m_driver->sessionArguments());
        QCOMPARE(m_driver->said("in "),
                 QStringList{QFileInfo(Settings::get().gameDir()).canonicalFilePath()});
        QCOMPARE(m_driver->consoleLines().last(), QStringLiteral("process exited (code 3)"));
        QCOMPARE(m_driver->selectorTexts().last(), QStringLiteral("1.0  (installed)"));

        // The second press downloads nothing.
        m_driver->server().forgetRequests();
        statuses.texts.clear();
        m_driver->click(m_driver->play());
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 2, PlayDriver::roadMs);
        QCOMPARE(statuses.texts, (QStringList{QStringLiteral("Launched 1.0"),
                                              QStringLiteral("Game exited with code 3 - see "
                                                             "Console")}));
        QVERIFY(m_driver->server().requests().isEmpty());
        QCOMPARE(m_driver->window().findChildren<RuntimeManager*>().size(), 1);
    }

    void leadsToTheGameInARelativeGameDirectory()
    {
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(throwaway_home::path()));
        const auto back = qScopeGuard([&before] { QDir::setCurrent(before); });
        m_driver->serveRuntime(PlayDriver::contentOf(QStringLiteral("runtime.zip")));
        m_driver->serveGame({"1.0"});
        Settings::get().setGameDir(QStringLiteral("games"));
        m_driver->openAndWait();
        QSignalSpy exited(&m_driver->versions(), &VersionManager::gameExited);
        m_driver->click(m_driver->play());
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 1, PlayDriver::roadMs);
        QCOMPARE(m_driver->status(), QStringLiteral("1.0 installed - launching..."));
        const QString directory = QDir(QStringLiteral("games")).canonicalPath();
        QCOMPARE(m_driver->said("in "), QStringList{directory});
        QVERIFY(m_driver->consoleLines().contains(QStringLiteral("  (working dir: games)")));
        m_driver->playToTheEnd();
        QCOMPARE(m_driver->status(), QStringLiteral("Launched 1.0"));
        QCOMPARE(QDir(directory).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 (QStringList{QStringLiteral("runtime"), QStringLiteral("versions"),
                              QStringLiteral("versions_manifest.json")}));
        QVERIFY(QDir(directory).removeRecursively());
    }

    void playsWhatIsInstalledWithoutANetwork()
    {
        m_driver->serveGame({"1.0"}, {{QStringLiteral("Old news"), {}, {}}});
        Settings::get().setJavaPath(PlayDriver::systemJava());
        m_driver->openAndWait();
        m_driver->playToTheEnd();
        m_driver->close();
        m_driver->server().goOffline();

        m_driver->openAndWait();
        QCOMPARE(m_driver->status(), QStringLiteral("Offline - using cached version list"));
        QCOMPARE(m_driver->selectorTexts(), QStringList{QStringLiteral("1.0  (installed)")});
        QCOMPARE(m_driver->find<QListWidget>("newsList")->item(0)->text(),
                 QStringLiteral("Old news"));
        // The server could not be asked about the session, which reads as a refusal.
        QTRY_VERIFY(m_driver->findWidget("usernameField")->isVisible());
        m_driver->playToTheEnd();
        QCOMPARE(m_driver->said("told "), QStringList());
    }

    void launchesABareVersionWithTheDefaultHeap()
    {
        m_driver->serveGame({"1.0"});
        Settings::get().setJavaPath(PlayDriver::systemJava());
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), QStringLiteral("Downloading 1.0..."));
        m_driver->waitForExit(1);
        QCOMPARE(m_driver->said("started with ").mid(1),
                 QStringList() << QStringLiteral("-Xms512m") << QStringLiteral("-Xmx2048m")
                               << QStringLiteral("-jar")
                               << m_driver->versions().jarPath(QStringLiteral("1.0"))
                               << m_driver->sessionArguments());
        // Exit code 0 leaves the last words.
        QCOMPARE(m_driver->status(), QStringLiteral("1.0 installed - launching..."));
        QCOMPARE(m_driver->server().requestCount(PlayDriver::runtimePath), 0);
    }

    void dropsLockedArgumentsWithoutAWord()
    {
        m_driver->serveGame({"1.0"});
        Settings::get().setJavaPath(PlayDriver::systemJava());
        PlayDriver::store("Mine", "1.0", QStringLiteral("--token=stolen -jar -Dfoo=1"));
        m_driver->openAndWait();
        m_driver->playToTheEnd();
        QCOMPARE(m_driver->said("started with ").mid(1, 4),
                 (QStringList{QStringLiteral("-Xms64m"), QStringLiteral("-Xmx128m"),
                              QStringLiteral("-Dfoo=1"), QStringLiteral("-jar")}));
        QCOMPARE(m_driver->said("told "), m_driver->sessionArguments());
    }

    void passesNoSessionArgumentsWithoutASession()
    {
        m_driver->serveGame({"1.0"});
        Settings::get().setJavaPath(PlayDriver::systemJava());
        Settings::get().clearAuth();
        m_driver->openAndWait();
        QVERIFY(m_driver->play()->isHidden());
        QSignalSpy exited(&m_driver->versions(), &VersionManager::gameExited);
        QVERIFY(QMetaObject::invokeMethod(&m_driver->window(), "onPlayClicked"));
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 1, PlayDriver::roadMs);
        QCOMPARE(m_driver->said("told "), QStringList());
        QCOMPARE(m_driver->said("started with ").size(), 5);
    }

    void saysThatItUpdatesAnInstalledVersion()
    {
        m_driver->serveGame({"1.0"});
        Settings::get().setJavaPath(PlayDriver::systemJava());
        PlayDriver::installJar("1.0", "an older jar");
        m_driver->openAndWait();
        QCOMPARE(m_driver->selectorTexts(), QStringList{QStringLiteral("1.0  (update available)")});
        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), QStringLiteral("Updating 1.0..."));
        m_driver->waitForExit(1);
        QCOMPARE(m_driver->selectorTexts(), QStringList{QStringLiteral("1.0  (installed)")});
    }

    void takesTheFirstOfTwoVersionsOfOneName()
    {
        const GameVersion first = m_driver->serveVersion(
            QStringLiteral("1.0"), PlayDriver::contentOf(QStringLiteral("game.jar")));
        GameVersion second = first;
        second.url = m_driver->server().url(QStringLiteral("/second.jar"));
        m_driver->serveManifest({first, second});
        Settings::get().setJavaPath(PlayDriver::systemJava());
        m_driver->openAndWait();
        m_driver->playToTheEnd();
        QCOMPARE(m_driver->server().requestCount("/second.jar"), 0);
    }

    void launchesTheChoiceOfTheMomentAfterTheRuntimeCame()
    {
        m_driver->serveRuntime(ZipBuilder::runtime("jdk-11", "echo ran \"$@\"").bytes());
        m_driver->serveGame({"1.0", "2.0"});
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        m_driver->selector()->setCurrentIndex(1);
        m_driver->waitForExit(1);
        QCOMPARE(Settings::get().lastVersion(), QStringLiteral("2.0"));
        QCOMPARE(m_driver->server().requestCount("/jars/1.0.jar"), 0);
    }

    // The version is the installed one's; the JVM arguments are those of the entry chosen now.
    void launchesTheInstalledVersionWithTheArgumentsOfTheMoment()
    {
        m_driver->serveGame({"1.0", "2.0"});
        Settings::get().setJavaPath(PlayDriver::systemJava());
        PlayDriver::store("Mine", "1.0", {});
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        m_driver->selector()->setCurrentIndex(3);
        QCOMPARE(m_driver->selector()->currentData().toString(), QStringLiteral("version:2.0"));
        m_driver->waitForExit(1);
        const QStringList started = m_driver->said("started with ");
        QCOMPARE(started.mid(1, 2),
                 (QStringList{QStringLiteral("-Xms512m"), QStringLiteral("-Xmx2048m")}));
        QCOMPARE(started[4], m_driver->versions().jarPath(QStringLiteral("1.0")));
        // The refill that shows the new marks ends with the first entry, as every refill does.
        QCOMPARE(m_driver->selector()->currentIndex(), 0);
    }

private:
    std::unique_ptr<PlayDriver> m_driver;
};

QTEST_MAIN(TestMainWindowPlay)
#include "tst_main_window_play.moc"
