#include "app/settings.h"
#include "services/runtime_manager.h"
#include "tests/support/play_driver.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/zip_builder.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

// Presses of PLAY that end early: what the window says, and that the next press works.
class TestMainWindowPlayFailures : public QObject
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

    void asksForTheRuntimeOnlyForAnUnsetJavaPath_data()
    {
        QTest::addColumn<QString>("javaPath");
        QTest::addColumn<bool>("asks");
        QTest::newRow("java") << QStringLiteral("java") << true;
        QTest::newRow("empty") << QStringLiteral("") << true;
        QTest::newRow("other letter case") << QStringLiteral("Java") << false;
        QTest::newRow("a full path") << PlayDriver::systemJava() << false;
        QTest::newRow("another program") << QStringLiteral("java-17") << false;
    }

    void asksForTheRuntimeOnlyForAnUnsetJavaPath()
    {
        QFETCH(QString, javaPath);
        QFETCH(bool, asks);
        m_driver->serveGame({"1.0"});
        m_driver->server().answer(PlayDriver::runtimePath, HttpAnswer::silence());
        Settings::get().setJavaPath(javaPath);
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        const QByteArray expected = asks ? PlayDriver::runtimePath : QByteArray("/jars/1.0.jar");
        const QByteArray other = asks ? QByteArray("/jars/1.0.jar") : PlayDriver::runtimePath;
        QTRY_COMPARE(m_driver->server().requestCount(expected), 1);
        QCOMPARE(m_driver->server().requestCount(other), 0);
    }

    void usesAnInstalledRuntimeWithoutAskingForIt()
    {
        m_driver->serveGame({"1.0"});
        QVERIFY(QDir().mkpath(QFileInfo(RuntimeManager::javaExe()).absolutePath()));
        PlayDriver::script(RuntimeManager::javaExe(), "echo mine; exit 4");
        m_driver->openAndWait();
        m_driver->playToTheEnd();
        QVERIFY(m_driver->consoleLines().contains(QStringLiteral("mine")));
        QCOMPARE(m_driver->server().requestCount(PlayDriver::runtimePath), 0);
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
        m_driver->serveRuntime(archive);
        m_driver->serveGame({"1.0"});
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
        m_driver->serveGame({"1.0"});
        m_driver->server().answer(PlayDriver::runtimePath, HttpAnswer::htmlError());
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        QTRY_VERIFY(m_driver->play()->isEnabled());
        QVERIFY(m_driver->status().startsWith(u"Runtime download failed: "));
    }

    void showsTheProgressOfTheRuntime()
    {
        m_driver->serveGame({"1.0"});
        m_driver->server().answer(PlayDriver::runtimePath, PlayDriver::half());
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        QTRY_VERIFY(m_driver->isUnderWay());
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
        m_driver->serveGame({"1.0"});
        HttpAnswer answer = HttpAnswer::ok(jar);
        answer.status = httpStatus;
        m_driver->server().answer("/jars/1.0.jar", answer);
        Settings::get().setJavaPath(PlayDriver::systemJava());
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        QTRY_VERIFY(m_driver->play()->isEnabled());
        QVERIFY2(m_driver->status().startsWith(status), qPrintable(m_driver->status()));
        QVERIFY(m_driver->findWidget("progressBar")->isHidden());
        QVERIFY(!m_driver->versions().isInstalled(QStringLiteral("1.0")));
        QVERIFY(m_driver->findWidget("console")->isHidden());
    }

    void doesNothingForAVersionThatTheManifestDoesNotList()
    {
        m_driver->serveGame({"1.0"});
        PlayDriver::store("Old", "0.1", {});
        Settings::get().setJavaPath(PlayDriver::systemJava());
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
        m_driver->serveGame({"1.0"});
        PlayDriver::store("Empty", "", {});
        m_driver->openAndWait();
        const QString before = m_driver->status();
        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), before);
        QCOMPARE(Settings::get().lastVersion(), QString());
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
        m_driver->serveGame({"1.0"});
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
        m_driver->serveGame({"1.0"});
        if (stage == "runtime") {
            m_driver->server().answer(PlayDriver::runtimePath, PlayDriver::half());
        } else if (stage == "unpack") {
            m_driver->serveRuntime(PlayDriver::bigRuntime());
        } else {
            const QString java = throwaway_home::path() + u"/java";
            PlayDriver::script(java, "echo running; exec sleep 60");
            Settings::get().setJavaPath(java);
            if (stage == "version")
                m_driver->server().answer("/jars/1.0.jar", PlayDriver::half());
        }
        m_driver->openAndWait();
        m_driver->click(m_driver->play());
        if (stage == "unpack")
            QTRY_VERIFY(QFile::exists(Settings::get().gameDir() + u"/runtime/jdk-11/filler/1"));
        else if (stage == "game")
            QTRY_VERIFY(m_driver->consoleLines().contains(QStringLiteral("running")));
        else
            QTRY_VERIFY(m_driver->isUnderWay());

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
    std::unique_ptr<PlayDriver> m_driver;
};

QTEST_MAIN(TestMainWindowPlayFailures)
#include "tst_main_window_play_failures.moc"
