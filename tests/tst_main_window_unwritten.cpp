#include "app/settings.h"
#include "profiles/profile_manager.h"
#include "tests/support/files.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

// What the player reads when the settings file cannot be written: a directory stands in its place.
class TestMainWindowUnwritten : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void initTestCase() { m_file = throwaway_home::settingsFile(); }
    void init() { m_driver = std::make_unique<WindowDriver>(); }

    void cleanup()
    {
        m_driver.reset();
        QDir().rmdir(m_file);
    }

    void saysThatASignInWillNotLast()
    {
        m_driver->server().answer(
            "/auth/login",
            HttpAnswer::json("{\"username\":\"bob\",\"uuid\":\"u\",\"token\":\"t\"}"));
        m_driver->server().answer("/auth/logout", HttpAnswer::json("{}"));
        m_driver->openAndWait();
        spoilTheFile();
        m_driver->type("usernameField", QStringLiteral("bob"));
        m_driver->type("passwordField", QStringLiteral("secret"));
        m_driver->click("loginButton");
        QTRY_COMPARE(m_driver->status(), told("Logged in as bob"));
        QVERIFY(m_driver->findWidget("logoutButton")->isVisible()); // for now
        QCOMPARE(Settings::get().authToken(), QStringLiteral("t"));
        m_driver->click("logoutButton");
        QTRY_COMPARE(m_driver->status(), told("Logged out"));
        QCOMPARE(Settings::get().authToken(), QString());
    }

    void saysThatSettingsWillNotLast()
    {
        m_driver->openAndWait();
        spoilTheFile();
        m_driver->click(m_driver->nav("Settings"));
        m_driver->type("javaPathField", QStringLiteral("/my/java"));
        QSignalSpy ready(&m_driver->versions(), &VersionManager::manifestReady);
        m_driver->click("settingsSaveButton");
        QCOMPARE(m_driver->status(), told("Settings saved"));
        // The manifest's answer comes too soon after it for anybody to have read that.
        QTRY_COMPARE(ready.size(), 1);
        QCOMPARE(m_driver->status(), told("0 versions available; settings saved"));
        QVERIFY(
            QMetaObject::invokeMethod(&m_driver->versions(), "manifestReady", Q_ARG(bool, false)));
        QCOMPARE(m_driver->status(), QStringLiteral("0 versions available"));

        m_driver->server().goOffline();
        m_driver->click(m_driver->nav("Settings"));
        m_driver->click("settingsSaveButton");
        QTRY_COMPARE(ready.size(), 3);
        QCOMPARE(m_driver->status(), told("Offline - using cached version list; settings saved"));
    }

    void saysThatAProfileWillNotLast()
    {
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->click("newProfileButton");
        m_driver->type("nameField", QStringLiteral("A"));
        const QString before = m_driver->status();
        m_driver->click("editorSaveButton");
        QCOMPARE(m_driver->status(), before); // it lasts
        spoilTheFile();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->click("newProfileButton");
        m_driver->type("nameField", QStringLiteral("B"));
        m_driver->click("editorSaveButton");
        QCOMPARE(m_driver->page(), 0);
        QCOMPARE(m_driver->status(), told("Profile saved"));
        QVERIFY(ProfileManager::get().find(QStringLiteral("B")));
    }

    void saysNothingMoreWhenItCanBeWrittenAgain()
    {
        m_driver->openAndWait();
        spoilTheFile();
        m_driver->click(m_driver->nav("Settings"));
        m_driver->type("javaPathField", QStringLiteral("/my/java"));
        m_driver->click("settingsSaveButton");
        QCOMPARE(m_driver->status(), told("Settings saved"));
        QVERIFY(QDir().rmdir(m_file));
        m_driver->click(m_driver->nav("Settings"));
        m_driver->click("settingsSaveButton");
        QCOMPARE(m_driver->status(), QStringLiteral("Settings saved"));
        QVERIFY(contentOf(m_file).contains("javaPath=/my/java"));
    }

private:
    void spoilTheFile()
    {
        QFile::remove(m_file);
        QVERIFY(QDir().mkpath(m_file));
    }

    QString told(const char* what) const
    {
        return QLatin1String(what) + u", only until you quit: cannot write " + m_file;
    }

    QString m_file;
    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowUnwritten)
#include "tst_main_window_unwritten.moc"
