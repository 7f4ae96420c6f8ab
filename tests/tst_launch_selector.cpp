#include "app/settings.h"
#include "profiles/profile_manager.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include <string>

// What the launch selector offers, and which entry is the active one.
class TestLaunchSelector : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->storeSession();
    }
    void cleanup() { m_driver.reset(); }

    void isEmptyWithoutProfilesAndVersions()
    {
        m_driver->openAndWait();
        QCOMPARE(m_driver->selector()->count(), 0);
        QVERIFY(!m_driver->play()->isEnabled());
        QCOMPARE(m_driver->find<QListWidget>("profileList")->count(), 0);
    }

    void listsProfilesThenASeparatorThenVersions()
    {
        store("A", "1.0");
        store("B", "");
        serve({"2.0", "1.0"});
        m_driver->openAndWait();
        QCOMPARE(m_driver->selectorTexts(),
                 (QStringList{QStringLiteral("A  (1.0)"), QStringLiteral("B  ()"), QString(),
                              QStringLiteral("2.0"), QStringLiteral("1.0")}));
        QCOMPARE(m_driver->selectorData(),
                 (QStringList{QStringLiteral("A"), QStringLiteral("B"), QString(),
                              QStringLiteral("version:2.0"), QStringLiteral("version:1.0")}));
        QCOMPARE(m_driver->selector()->itemData(2, Qt::AccessibleDescriptionRole).toString(),
                 QStringLiteral("separator"));
        QVERIFY(m_driver->play()->isEnabled());
    }

    void hasNoSeparatorWithoutProfiles()
    {
        serve({"1.0"});
        m_driver->openAndWait();
        QCOMPARE(m_driver->selectorData(), QStringList{QStringLiteral("version:1.0")});
    }

    void holdsProfilesAndATrailingSeparatorWithoutAManifest()
    {
        store("A", "1.0");
        m_driver->server().answer("/manifest.json", HttpAnswer::htmlError());
        m_driver->openAndWait();
        // Not filled before the first manifest, or the first look at the profiles.
        QCOMPARE(m_driver->selector()->count(), 0);
        m_driver->click(m_driver->nav("Profiles"));
        QCOMPARE(m_driver->selectorData(), (QStringList{QStringLiteral("A"), QString()}));
        QVERIFY(m_driver->play()->isEnabled());
    }

    void opensNoWiderForALongName()
    {
        serve({"1.0", std::string(200, 'v').c_str()});
        m_driver->openAndWait();
        const int closed = m_driver->selector()->width();
        m_driver->selector()->showPopup();
        QTest::qWait(0);
        const int open = m_driver->selector()->view()->window()->width();
        QVERIFY2(open >= closed && open <= 640, qPrintable(QString::number(open)));
        // The rim above the first entry is no other colour.
        const QImage list = m_driver->selector()->view()->window()->grab().toImage();
        QCOMPARE(list.pixelColor(open / 2, 3), QColor(0x11, 0x16, 0x24));
        m_driver->selector()->hidePopup();
    }

    void doesNothingOnPlayWhileTheSelectorIsEmpty()
    {
        store("A", "1.0");
        m_driver->server().answer("/manifest.json", HttpAnswer::htmlError());
        m_driver->openAndWait();
        const QString before = m_driver->status();
        QVERIFY(m_driver->play()->isEnabled());
        m_driver->click(m_driver->play());
        QCOMPARE(m_driver->status(), before);
        QCOMPARE(Settings::get().lastVersion(), QString());
        QVERIFY(m_driver->play()->isEnabled());
    }

    void marksInstalledAndOutdatedVersions()
    {
        const GameVersion current = m_driver->serveVersion(QStringLiteral("1.0"), "jar one");
        const GameVersion outdated = m_driver->serveVersion(QStringLiteral("2.0"), "jar two");
        const GameVersion missing = m_driver->serveVersion(QStringLiteral("3.0"), "jar three");
        install("1.0", "jar one");
        install("2.0", "an older jar");
        m_driver->serveManifest({current, outdated, missing});
        m_driver->openAndWait();
        const QStringList expected{QStringLiteral("1.0  (installed)"),
                                   QStringLiteral("2.0  (update available)"),
                                   QStringLiteral("3.0")};
        QCOMPARE(m_driver->selectorTexts(), expected);
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->click("newProfileButton");
        const auto* combo = m_driver->find<QComboBox>("versionCombo");
        QStringList inEditor;
        for (int i = 0; i < combo->count(); ++i)
            inEditor.append(combo->itemText(i));
        QCOMPARE(inEditor, expected);
        QCOMPARE(combo->itemData(1).toString(), QStringLiteral("2.0"));
        QCOMPARE(combo->currentIndex(), 0);
    }

    // The first insertion records the first entry before the active one is read back.
    void endsEveryRefillWithTheFirstEntrySelectedAndActive()
    {
        store("A", "1.0");
        store("B", "1.0");
        serve({"1.0"});
        ProfileManager::get().setActiveProfile(QStringLiteral("B"));
        m_driver->openAndWait();
        QCOMPARE(m_driver->selector()->currentIndex(), 0);
        QCOMPARE(ProfileManager::get().activeProfile(), QStringLiteral("A"));

        m_driver->selector()->setFocus();
        QTest::keyClick(m_driver->selector(), Qt::Key_Down);
        QCOMPARE(ProfileManager::get().activeProfile(), QStringLiteral("B"));
        m_driver->click(m_driver->nav("Profiles"));
        QCOMPARE(m_driver->selector()->currentIndex(), 0);
        QCOMPARE(ProfileManager::get().activeProfile(), QStringLiteral("A"));
    }

private:
    static void store(const char* name, const char* version)
    {
        QVERIFY(ProfileManager::get().save(
            {QLatin1String(name), QLatin1String(version), 512, 2048, QString()}, QString(),
            nullptr));
    }

    static void install(const char* id, const QByteArray& jar)
    {
        const QString path = VersionManager().jarPath(QLatin1String(id));
        QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(jar);
    }

    void serve(const QList<const char*>& ids)
    {
        QList<GameVersion> versions;
        for (const char* id : ids)
            versions.append(
                {QLatin1String(id), m_driver->server().url(QStringLiteral("/x")), {}, {}});
        m_driver->serveManifest(versions);
    }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestLaunchSelector)
#include "tst_launch_selector.moc"
