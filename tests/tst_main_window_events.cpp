#include "services/update_manager.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QComboBox>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <elf.h>

// What each signal of the services shows. The signals are emitted by hand; how the services come to
// emit them is tested with the services.
class TestMainWindowEvents : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->server().answer("/manifest.json", HttpAnswer::silence());
        m_driver->storeSession();
        m_driver->open();
    }

    void cleanup() { m_driver.reset(); }

    void countsTheVersionsOfAFreshManifest()
    {
        parse("{\"versions\":[{\"id\":\"1\",\"url\":\"u\"},{\"id\":\"2\",\"url\":\"u\"}],"
              "\"news\":[{\"title\":\"Hello\"}]}");
        Q_EMIT versions().manifestReady(false);
        QCOMPARE(m_driver->status(), QStringLiteral("2 versions available"));
        QCOMPARE(m_driver->selectorTexts(),
                 (QStringList{QStringLiteral("1"), QStringLiteral("2")}));
        QCOMPARE(m_driver->find<QListWidget>("newsList")->item(0)->text(), QStringLiteral("Hello"));
    }

    void countsToZeroAndOne()
    {
        parse("{\"versions\":[]}");
        Q_EMIT versions().manifestReady(false);
        QCOMPARE(m_driver->status(), QStringLiteral("0 versions available"));
        parse("{\"versions\":[{\"id\":\"1\",\"url\":\"u\"}]}");
        Q_EMIT versions().manifestReady(false);
        QCOMPARE(m_driver->status(), QStringLiteral("1 versions available"));
    }

    void saysThatACachedManifestIsUsed()
    {
        parse("{\"versions\":[{\"id\":\"1\",\"url\":\"u\"}]}");
        Q_EMIT versions().manifestReady(true);
        QCOMPARE(m_driver->status(), QStringLiteral("Offline - using cached version list"));
        QCOMPARE(m_driver->selector()->count(), 1);
    }

    void saysThatThereIsNoManifestAndLeavesTheRest()
    {
        QVERIFY(m_driver->play()->isEnabled());
        Q_EMIT versions().manifestFailed(QStringLiteral("Connection refused"));
        QCOMPARE(m_driver->status(),
                 QStringLiteral("Offline - no cached manifest (Connection refused)"));
        QVERIFY(m_driver->play()->isEnabled());
        QVERIFY(progress()->isHidden());
        QCOMPARE(m_driver->selector()->count(), 0);
        QCOMPARE(m_driver->find<QListWidget>("newsList")->count(), 0);
    }

    void showsDownloadProgressInWholePercent_data()
    {
        QTest::addColumn<qint64>("received");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<int>("value");
        QTest::newRow("nothing yet") << qint64{0} << qint64{10} << 0;
        QTest::newRow("rounded down") << qint64{2} << qint64{3} << 66;
        QTest::newRow("all") << qint64{7} << qint64{7} << 100;
        QTest::newRow("beyond 32 bits") << qint64{30'000'000'000} << qint64{40'000'000'000} << 75;
    }

    void showsDownloadProgressInWholePercent()
    {
        QFETCH(qint64, received);
        QFETCH(qint64, total);
        QFETCH(int, value);
        progress()->setMaximum(7);
        Q_EMIT versions().downloadProgress(received, total);
        QCOMPARE(progress()->maximum(), 100);
        QCOMPARE(progress()->value(), value);
        QVERIFY(progress()->isHidden());
        Q_EMIT updates().updateProgress(received, total);
        QCOMPARE(progress()->value(), value);
        QVERIFY(progress()->isVisible());
    }

    void ignoresProgressWithoutATotal_data()
    {
        QTest::addColumn<qint64>("total");
        QTest::newRow("zero") << qint64{0};
        QTest::newRow("unknown") << qint64{-1};
    }

    void ignoresProgressWithoutATotal()
    {
        QFETCH(qint64, total);
        progress()->setMaximum(50);
        progress()->setValue(12);
        Q_EMIT versions().downloadProgress(5, total);
        Q_EMIT updates().updateProgress(5, total);
        QCOMPARE(progress()->value(), 12);
        QCOMPARE(progress()->maximum(), 50);
        QVERIFY(progress()->isHidden());
    }

    // Only the download of a version sets the maximum.
    void keepsTheMaximumDuringAnUpdate()
    {
        progress()->setMaximum(200);
        Q_EMIT updates().updateProgress(1, 2);
        QCOMPARE(progress()->maximum(), 200);
        QCOMPARE(progress()->value(), 50);
    }

    void endsBusyWhenADownloadFails()
    {
        m_driver->play()->setEnabled(false);
        progress()->show();
        Q_EMIT versions().installFailed(QStringLiteral("Checksum mismatch — download corrupted"));
        QCOMPARE(m_driver->status(),
                 QStringLiteral("Download failed: Checksum mismatch — download corrupted"));
        QVERIFY(m_driver->play()->isEnabled());
        QVERIFY(progress()->isHidden());
    }

    void opensTheConsoleForTheGame()
    {
        Q_EMIT versions().gameLog(QStringLiteral("> java -jar x"));
        QVERIFY(m_driver->findWidget("console")->isVisible());
        QCOMPARE(m_driver->consoleLines(), QStringList{QStringLiteral("> java -jar x")});
    }

    void saysHowTheGameEnded_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("status");
        QTest::newRow("well") << 0 << QStringLiteral("Checking for versions...");
        QTest::newRow("three") << 3 << QStringLiteral("Game exited with code 3 - see Console");
        QTest::newRow("negative") << -1 << QStringLiteral("Game exited with code -1 - see Console");
    }

    void saysHowTheGameEnded()
    {
        QFETCH(int, code);
        QFETCH(QString, status);
        Q_EMIT versions().gameExited(code);
        QCOMPARE(m_driver->status(), status);
    }

    void announcesAnUpdate()
    {
        Q_EMIT updates().updateAvailable(QStringLiteral("1.0.17"));
        QCOMPARE(m_driver->status(), QStringLiteral("Updating launcher to 1.0.17..."));
        QVERIFY(m_driver->play()->isEnabled());
    }

    void keepsQuietAboutBeingCurrentAndAboutFailedUpdates()
    {
        Q_EMIT updates().upToDate();
        Q_EMIT updates().updateFailed(QStringLiteral("Checksum mismatch on launcher update"));
        QCOMPARE(m_driver->status(), QStringLiteral("Checking for versions..."));
        QVERIFY(progress()->isHidden());
        QVERIFY(m_driver->play()->isEnabled());
    }

    void saysWhyAnUpdateWouldNotStart()
    {
        const auto words = QStringLiteral("Launcher 1.0.17 would not start here: it is made for "
                                          "another machine - install its archive");
        refuseAnUpdate();
        QTRY_COMPARE(m_driver->status(), words);
        QVERIFY(progress()->isHidden());
        // The list of versions comes after it, and is asked for again later.
        Q_EMIT versions().manifestReady(false);
        QCOMPARE(m_driver->status(), QString(u"0 versions available; " + words));
        Q_EMIT versions().manifestReady(false);
        QCOMPARE(m_driver->status(), QStringLiteral("0 versions available"));
        // Nothing to play is no task that goes on.
        QVERIFY(!m_driver->play()->isEnabled());
        refuseAnUpdate();
        QTRY_COMPARE(m_driver->status(), words);
        QVERIFY(progress()->isHidden());
        Q_EMIT versions().manifestReady(false);
        QCOMPARE(m_driver->status(), QStringLiteral("0 versions available"));
    }

    void leavesTheProgressOfAnotherTask()
    {
        Q_EMIT updates().updateReady(QStringLiteral("1.0.18"));
        refuseAnUpdate();
        QTRY_VERIFY(m_driver->status().startsWith(u"Launcher 1.0.17 would"));
        QVERIFY(progress()->isVisible());
    }

    void restartsForAnUpdate()
    {
        QElapsedTimer clock;
        clock.start();
        Q_EMIT updates().updateReady(QStringLiteral("1.0.17"));
        QCOMPARE(m_driver->status(), QStringLiteral("Restarting..."));
        QVERIFY(!m_driver->play()->isEnabled());
        QVERIFY(progress()->isVisible());
        // Ends this event loop the way it ends the program's.
        QCOMPARE(QCoreApplication::exec(), 0);
        QVERIFY2(clock.elapsed() >= 1140, qPrintable(QString::number(clock.elapsed())));
        QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
    }

    void startsANewTaskWithAnEmptyBar()
    {
        Q_EMIT versions().downloadProgress(10, 10);
        Q_EMIT updates().updateReady(QStringLiteral("2"));
        QVERIFY(progress()->value() < 0);
    }

private:
    VersionManager& versions() { return m_driver->versions(); }
    UpdateManager& updates() { return m_driver->updates(); }
    // A build for another processor.
    void refuseAnUpdate()
    {
        // The window's own two are not answered.
        QTRY_VERIFY(m_driver->server().requestCount("/manifest.json") >= 2);
        QFile running(QCoreApplication::applicationFilePath());
        QVERIFY(running.open(QIODevice::ReadOnly));
        QByteArray build = running.read(4096);
        build[offsetof(Elf64_Ehdr, e_machine)] = static_cast<char>(EM_S390);
        m_driver->server().answer("/build", HttpAnswer::ok(build));
        const QJsonObject launcher{
            {QStringLiteral("version"), QStringLiteral("1.0.17")},
            {QStringLiteral("url"), m_driver->server().url(QStringLiteral("/build"))}};
        m_driver->server().answer(
            "/manifest.json",
            HttpAnswer::json(
                QJsonDocument(QJsonObject{{QStringLiteral("launcher"), launcher}}).toJson()));
        updates().checkForUpdate();
    }
    QProgressBar* progress() { return m_driver->find<QProgressBar>("progressBar"); }
    void parse(const QByteArray& manifest) { QVERIFY(versions().parseManifest(manifest)); }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowEvents)
#include "tst_main_window_events.moc"
