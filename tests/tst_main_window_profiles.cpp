#include "app/settings.h"
#include "profiles/profile_manager.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTest>
#include <QToolButton>

// The profiles list and the editor.
class TestMainWindowProfiles : public QObject
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

    void laysOutTheListPage()
    {
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        auto* layout = qobject_cast<QVBoxLayout*>(m_driver->pages()->widget(2)->layout());
        QVERIFY(layout);
        QCOMPARE(layout->contentsMargins(), QMargins(12, 12, 12, 8));
        QCOMPARE(layout->count(), 4);
        QCOMPARE(
            textsOf(layout->itemAt(0)->layout()),
            (QStringList{QStringLiteral("Profiles"), QString(), QStringLiteral("New Profile")}));
        QCOMPARE(layout->itemAt(1)->widget(), list());
        QCOMPARE(layout->stretch(1), 1);
        QCOMPARE(textsOf(layout->itemAt(2)->layout()),
                 (QStringList{QStringLiteral("Edit"), QStringLiteral("Play"),
                              QStringLiteral("Delete"), QString(), QStringLiteral("← Back")}));
        QCOMPARE(m_driver->findWidget("profilesBackButton")->width(), 90);
        QCOMPARE(layout->itemAt(3)->widget(), m_driver->profilesHint());
        QVERIFY(m_driver->profilesHint()->wordWrap());
        QCOMPARE(m_driver->profilesHint()->text(),
                 QStringLiteral("A profile picks the version to play and how to launch it (memory, "
                                "JVM flags). Double-click to edit. Session arguments "
                                "(username/token) are managed by the launcher and cannot be "
                                "overridden."));
    }

    void laysOutTheEditor()
    {
        m_driver->openAndWait();
        openEditor();
        auto* layout = qobject_cast<QVBoxLayout*>(m_driver->pages()->widget(3)->layout());
        QVERIFY(layout);
        QCOMPARE(layout->contentsMargins(), QMargins(12, 12, 12, 8));
        QCOMPARE(layout->count(), 4);
        QCOMPARE(textsOf(layout->itemAt(0)->layout()),
                 (QStringList{QStringLiteral("Profile"), QString()}));
        auto* form = qobject_cast<QFormLayout*>(layout->itemAt(1)->layout());
        QVERIFY(form);
        QCOMPARE(form->rowCount(), 5);
        QStringList labels;
        for (int row = 0; row < 4; ++row)
            labels.append(
                qobject_cast<QLabel*>(form->itemAt(row, QFormLayout::LabelRole)->widget())->text());
        QCOMPARE(labels,
                 (QStringList{QStringLiteral("Name:"), QStringLiteral("Game version:"),
                              QStringLiteral("Memory:"), QStringLiteral("Extra JVM args:")}));
        QVERIFY(!form->itemAt(4, QFormLayout::LabelRole));
        QCOMPARE(form->itemAt(4, QFormLayout::FieldRole)->widget(), m_driver->editorError());
        QVERIFY(m_driver->editorError()->wordWrap());
        QVERIFY(m_driver->editorError()->isHidden());
        QCOMPARE(textsOf(form->itemAt(2, QFormLayout::FieldRole)->layout()),
                 (QStringList{QStringLiteral("Xms"), QStringLiteral("512 MB"),
                              QStringLiteral("Xmx"), QStringLiteral("2048 MB"), QString()}));
        QCOMPARE(line("extraArgsField")->placeholderText(),
                 QStringLiteral("-XX:+UseG1GC -XX:MaxGCPauseMillis=50 ..."));
        QVERIFY(layout->itemAt(2)->spacerItem());
        QCOMPARE(textsOf(layout->itemAt(3)->layout()),
                 (QStringList{QString(), QStringLiteral("Save"), QStringLiteral("Cancel")}));
    }

    void offersDefaultsForANewProfile()
    {
        serve({"2.0", "1.0"});
        m_driver->openAndWait();
        openEditor();
        QCOMPARE(m_driver->page(), 3);
        QCOMPARE(line("nameField")->text(), QString());
        QCOMPARE(spin("xmsSpin")->value(), 512);
        QCOMPARE(spin("xmxSpin")->value(), 2048);
        QCOMPARE(line("extraArgsField")->text(), QString());
        QCOMPARE(combo()->currentData().toString(), QStringLiteral("2.0"));
    }

    void keepsHeapSizesInRange_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("value");
        QTest::newRow("lowest") << QStringLiteral("32") << 32;
        QTest::newRow("too low: as before") << QStringLiteral("31") << 1024;
        QTest::newRow("too high: without the last digit") << QStringLiteral("65537") << 6553;
        QTest::newRow("highest") << QStringLiteral("65536") << 65536;
    }

    void keepsHeapSizesInRange()
    {
        QFETCH(QString, typed);
        QFETCH(int, value);
        m_driver->openAndWait();
        openEditor();
        for (const char* name : {"xmsSpin", "xmxSpin"}) {
            QCOMPARE(spin(name)->minimum(), 32);
            QCOMPARE(spin(name)->maximum(), 65536);
            QCOMPARE(spin(name)->suffix(), QStringLiteral(" MB"));
            spin(name)->setValue(1024);
            spin(name)->setFocus();
            spin(name)->selectAll();
            QTest::keyClicks(spin(name), typed);
            QTest::keyClick(spin(name), Qt::Key_Tab);
            QCOMPARE(spin(name)->value(), value);
        }
    }

    void createsAProfile()
    {
        serve({"2.0", "1.0"});
        m_driver->openAndWait();
        openEditor();
        m_driver->type("nameField", QStringLiteral("  Creative  "));
        combo()->setFocus();
        QTest::keyClick(combo(), Qt::Key_Down);
        spin("xmxSpin")->setValue(4096);
        m_driver->type("extraArgsField", QStringLiteral(" -Da=1 -Db=2  "));
        m_driver->click("editorSaveButton");

        QCOMPARE(m_driver->page(), 0);
        QCOMPARE(ProfileManager::get().profiles().size(), 1);
        const LaunchProfile& saved = ProfileManager::get().profiles().first();
        QCOMPARE(saved.name, QStringLiteral("Creative"));
        QCOMPARE(saved.version, QStringLiteral("1.0"));
        QCOMPARE(saved.xms, 512);
        QCOMPARE(saved.xmx, 4096);
        QCOMPARE(saved.extraJvmArgs, QStringLiteral("-Da=1 -Db=2"));
        QCOMPARE(ProfileManager::get().activeProfile(), QStringLiteral("Creative"));
        QCOMPARE(m_driver->selectorData().first(), QStringLiteral("Creative"));
        QCOMPARE(list()->item(0)->text(),
                 QStringLiteral("Creative  -  1.0  Xmx 4096 MB  -Da=1 -Db=2"));
    }

    void describesProfilesInTheList()
    {
        store("A", "1.0");
        serve({"1.0"});
        m_driver->openAndWait();
        QCOMPARE(list()->item(0)->text(), QStringLiteral("A  -  1.0  Xmx 2048 MB"));
        QCOMPARE(list()->item(0)->data(Qt::UserRole).toString(), QStringLiteral("A"));
    }

    void editsByDoubleClickAndByButton()
    {
        QVERIFY(ProfileManager::get().save(
            {QStringLiteral("B"), QStringLiteral("1.0"), 64, 128, QStringLiteral("-Dx=1")},
            QString(), nullptr));
        serve({"2.0", "1.0"});
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->doubleClickRow(list(), 0);
        verifyEditorShowsB();
        m_driver->click("editorCancelButton");
        QCOMPARE(m_driver->page(), 2);
        m_driver->clickRow(list(), 0);
        m_driver->click("editProfileButton");
        verifyEditorShowsB();
    }

    void renamesAProfile()
    {
        store("A", "1.0");
        store("B", "1.0");
        serve({"1.0"});
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->doubleClickRow(list(), 1);
        m_driver->type("nameField", QStringLiteral("C"));
        m_driver->click("editorSaveButton");
        QCOMPARE(names(), (QStringList{QStringLiteral("A"), QStringLiteral("C")}));
    }

    void takesTheFirstVersionForOneThatIsGone()
    {
        store("A", "0.9");
        serve({"2.0", "1.0"});
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->doubleClickRow(list(), 0);
        QCOMPARE(combo()->currentData().toString(), QStringLiteral("2.0"));
        m_driver->click("editorSaveButton");
        QCOMPARE(ProfileManager::get().profiles().first().version, QStringLiteral("2.0"));
    }

    // Offline, before any manifest was kept.
    void keepsTheVersionWhileNoneIsKnown()
    {
        store("A", "0.9");
        m_driver->server().goOffline();
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->doubleClickRow(list(), 0);
        QCOMPARE(combo()->count(), 0);
        m_driver->type("extraArgsField", QStringLiteral("-Dx=1"));
        m_driver->click("editorSaveButton");
        const LaunchProfile saved = ProfileManager::get().profiles().first();
        QCOMPARE(saved.version, QStringLiteral("0.9"));
        QCOMPARE(saved.extraJvmArgs, QStringLiteral("-Dx=1"));
        // A new one has none to keep, not even that of the profile that was edited before.
        openEditor();
        m_driver->type("nameField", QStringLiteral("B"));
        m_driver->click("editorSaveButton");
        QCOMPARE(ProfileManager::get().find(QStringLiteral("B"))->version, QString());
    }

    void savesNothingOnCancel()
    {
        store("A", "1.0");
        serve({"1.0"});
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->doubleClickRow(list(), 0);
        m_driver->type("nameField", QStringLiteral("Other"));
        m_driver->click("editorCancelButton");
        QCOMPARE(m_driver->page(), 2);
        QCOMPARE(names(), QStringList{QStringLiteral("A")});
        // The next visit starts afresh.
        m_driver->doubleClickRow(list(), 0);
        QCOMPARE(line("nameField")->text(), QStringLiteral("A"));
    }

    void showsWhyAProfileIsRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("xms");
        QTest::addColumn<int>("xmx");
        QTest::addColumn<QString>("args");
        QTest::addColumn<QString>("error");
        QTest::newRow("no name") << QStringLiteral("  ") << 64 << 128 << QString()
                                 << QStringLiteral("Profile name cannot be empty");
        QTest::newRow("heap the wrong way round")
            << QStringLiteral("N") << 256 << 128 << QString()
            << QStringLiteral("Xms cannot be greater than Xmx");
        QTest::newRow("quotes") << QStringLiteral("N") << 64 << 128 << QStringLiteral("-Da=\"b\"")
                                << QStringLiteral("Quotes are not allowed in JVM args");
        QTest::newRow("taken name") << QStringLiteral("A") << 64 << 128 << QString()
                                    << QStringLiteral("A profile with this name already exists");
    }

    void showsWhyAProfileIsRefused()
    {
        QFETCH(QString, name);
        QFETCH(int, xms);
        QFETCH(int, xmx);
        QFETCH(QString, args);
        QFETCH(QString, error);
        store("A", "1.0");
        serve({"1.0"});
        m_driver->openAndWait();
        openEditor();
        m_driver->type("nameField", name);
        spin("xmsSpin")->setValue(xms);
        spin("xmxSpin")->setValue(xmx);
        m_driver->type("extraArgsField", args);
        m_driver->click("editorSaveButton");
        QCOMPARE(m_driver->page(), 3);
        QVERIFY(m_driver->editorError()->isVisible());
        QCOMPARE(m_driver->editorError()->text(), error);
        QCOMPARE(m_driver->editorError()->textFormat(), Qt::PlainText);
        QCOMPARE(line("nameField")->text(), name);
        QCOMPARE(line("extraArgsField")->text(), args);
        QCOMPARE(names(), QStringList{QStringLiteral("A")});
        // Gone when the editor is opened again.
        m_driver->click("editorCancelButton");
        m_driver->click("newProfileButton");
        QVERIFY(m_driver->editorError()->isHidden());
    }

    void deletesAtOnce()
    {
        store("A", "1.0");
        store("B", "1.0");
        serve({"1.0"});
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->clickRow(list(), 0);
        m_driver->click("deleteProfileButton");
        QCOMPARE(names(), QStringList{QStringLiteral("B")});
        QCOMPARE(list()->count(), 1);
        QCOMPARE(m_driver->selectorData().first(), QStringLiteral("B"));
        QCOMPARE(m_driver->page(), 2);
    }

    void doesNothingWithoutACurrentProfile()
    {
        store("A", "1.0");
        serve({"1.0"});
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        const QString before = m_driver->status();
        QVERIFY(!list()->currentItem());
        for (const char* name : {"editProfileButton", "playProfileButton", "deleteProfileButton"})
            m_driver->click(name);
        QCOMPARE(m_driver->page(), 2);
        QCOMPARE(names(), QStringList{QStringLiteral("A")});
        QCOMPARE(m_driver->status(), before);
        QCOMPARE(Settings::get().lastVersion(), QString());
    }

    // Delete asks no question: what it would hit must never be invisible.
    void showsWhichProfileIsCurrent()
    {
        store("A", "1.0");
        store("B", "1.0");
        serve({"1.0"});
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        list()->setFocus(Qt::TabFocusReason);
        QTRY_VERIFY(list()->currentItem());
        QVERIFY(list()->currentItem()->isSelected());
        QTest::keyClick(list(), Qt::Key_Down);
        QCOMPARE(list()->currentRow(), 1);
        QVERIFY(list()->currentItem()->isSelected());
        // A click below the last item.
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, {},
                          list()->viewport()->rect().bottomLeft() + QPoint(20, -5));
        QVERIFY(!list()->currentItem() || list()->currentItem()->isSelected());
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, Qt::ControlModifier,
                          list()->visualItemRect(list()->item(1)).center());
        QVERIFY(!list()->currentItem() || list()->currentItem()->isSelected());
    }

    // The refill makes the first entry current, and that is the one played.
    void playsTheFirstEntryFromTheList()
    {
        store("A", "1.0");
        store("B", "2.0");
        serve({});
        Settings::get().setJavaPath(QStringLiteral("/somewhere/java"));
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->clickRow(list(), 1);
        m_driver->click("playProfileButton");
        QCOMPARE(Settings::get().lastVersion(), QStringLiteral("1.0"));
        QCOMPARE(ProfileManager::get().activeProfile(), QStringLiteral("A"));
    }

    void goesBackToTheNews()
    {
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Settings"));
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->click("profilesBackButton");
        QCOMPARE(m_driver->page(), 0);
    }

private:
    static void store(const char* name, const char* version)
    {
        QVERIFY(ProfileManager::get().save(
            {QLatin1String(name), QLatin1String(version), 512, 2048, QString()}, QString(),
            nullptr));
    }

    void serve(const QList<const char*>& ids)
    {
        QList<GameVersion> versions;
        for (const char* id : ids)
            versions.append(
                {QLatin1String(id), m_driver->server().url(QStringLiteral("/x")), {}, {}});
        m_driver->serveManifest(versions);
    }

    void openEditor()
    {
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->click("newProfileButton");
    }

    void verifyEditorShowsB()
    {
        QCOMPARE(m_driver->page(), 3);
        QCOMPARE(line("nameField")->text(), QStringLiteral("B"));
        QCOMPARE(combo()->currentData().toString(), QStringLiteral("1.0"));
        QCOMPARE(spin("xmsSpin")->value(), 64);
        QCOMPARE(spin("xmxSpin")->value(), 128);
        QCOMPARE(line("extraArgsField")->text(), QStringLiteral("-Dx=1"));
    }

    // The texts of a row's widgets; empty for a stretch.
    static QStringList textsOf(const QLayout* row)
    {
        QStringList texts;
        for (int i = 0; i < row->count(); ++i) {
            const QWidget* widget = row->itemAt(i)->widget();
            texts.append(widget ? widget->property("text").toString() : QString());
        }
        return texts;
    }

    static QStringList names()
    {
        QStringList names;
        for (const LaunchProfile& p : ProfileManager::get().profiles())
            names.append(p.name);
        return names;
    }

    QListWidget* list() { return m_driver->find<QListWidget>("profileList"); }
    QComboBox* combo() { return m_driver->find<QComboBox>("versionCombo"); }
    QSpinBox* spin(const char* name) { return m_driver->find<QSpinBox>(name); }
    QLineEdit* line(const char* name) { return m_driver->find<QLineEdit>(name); }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowProfiles)
#include "tst_main_window_profiles.moc"
