#include "app/settings.h"
#include "profiles/profile_manager.h"
#include "services/auth_client.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QComboBox>
#include <QInputMethodEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTest>
#include <QToolButton>

using namespace Qt::StringLiterals;

// The window in the hands of somebody who uses no mouse: where the keyboard is, that it can be
// seen, and what Return and Escape do.
class TestMainWindowKeyboard : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->serveManifest(
            {{u"1.0"_s, u"http://x/"_s, {}, {}}, {u"2.0"_s, u"http://x/"_s, {}, {}}},
            {{u"Headline"_s, {}, u"text"_s}});
        QVERIFY(ProfileManager::get().save({u"A"_s, u"1.0"_s, 512, 2048, {}}, {}, nullptr));
    }
    void cleanup() { m_driver.reset(); }

    void showsTheKeyboardOnTheAccountPage_data()
    {
        QTest::addColumn<int>("height");
        QTest::addColumn<bool>("forwards");
        for (const int height : {600, 420}) {
            QTest::addRow("forwards, %d high", height) << height << true;
            QTest::addRow("backwards, %d high", height) << height << false;
        }
    }

    void showsTheKeyboardOnTheAccountPage()
    {
        QFETCH(int, height);
        QFETCH(bool, forwards);
        openSignedIn();
        m_driver->click(m_driver->nav("Profile"));
        m_driver->window().resize(900, height);
        QTest::qWait(0);
        QWidget* page = m_driver->pages()->widget(4);
        auto* area = page->findChild<QScrollArea*>();
        QScrollBar* bar = area->verticalScrollBar();
        QVERIFY(bar->maximum() > 0);
        m_driver->nav("News")->setFocus(Qt::TabFocusReason);
        int seen = 0;
        for (int i = 0; i < 30; ++i) {
            // As far from the next stop as can be.
            if (!page->isAncestorOf(focused()))
                bar->setValue(forwards ? bar->maximum() : 0);
            QTest::keyClick(focused(), forwards ? Qt::Key_Tab : Qt::Key_Backtab);
            QWidget* now = focused();
            if (now == m_driver->nav("News"))
                break;
            if (!page->isAncestorOf(now))
                continue;
            ++seen;
            const QSize visible = now->visibleRegion().boundingRect().size();
            const QSize wanted = now->size().boundedTo(area->viewport()->size());
            QVERIFY2(visible.height() >= wanted.height(),
                     qPrintable(u"%1: %2 of %3"_s.arg(now->objectName())
                                    .arg(visible.height())
                                    .arg(wanted.height())));
        }
        QVERIFY(seen >= 5);
    }

    void leavesThePageAloneUnderTheMouse()
    {
        openSignedIn();
        m_driver->click(m_driver->nav("Profile"));
        m_driver->window().resize(900, 420);
        QTest::qWait(0);
        QWidget* page = m_driver->pages()->widget(4);
        auto* area = page->findChild<QScrollArea*>();
        auto* name = page->findChild<QLineEdit*>(u"accountName"_s);
        // All but a few pixels of the field are scrolled away.
        const int top = name->mapTo(area->widget(), QPoint()).y();
        area->verticalScrollBar()->setValue(top + name->height() - 6);
        const int before = area->verticalScrollBar()->value();
        QVERIFY(before > 0);
        m_driver->nav("News")->setFocus(Qt::TabFocusReason);
        m_driver->activate();
        QCOMPARE(QApplication::focusWidget(), m_driver->nav("News"));
        QTest::mousePress(name, Qt::LeftButton, {}, QPoint(20, name->height() - 3));
        QCOMPARE(focused(), name);
        QCOMPARE(area->verticalScrollBar()->value(), before);
        QTest::mouseRelease(name, Qt::LeftButton, {}, QPoint(20, name->height() - 3));
    }

    void keepsTheSelectorShutWhenSpaceIsPressedTwice()
    {
        startDownloadByKeyboard();
        for (int i = 0; i < 3; ++i)
            press(Qt::Key_Space);
        QVERIFY(!m_driver->selector()->view()->isVisible());
        QVERIFY(!QApplication::activePopupWidget());
        Q_EMIT m_driver->versions().installFailed(u"cut"_s);
        QCOMPARE(focused(), m_driver->play());
    }

    void opensTheSelectorWhenTheKeyboardWasTakenThere()
    {
        startDownloadByKeyboard();
        press(Qt::Key_Backtab);
        press(Qt::Key_Tab);
        QCOMPARE(focused(), m_driver->selector());
        press(Qt::Key_Space);
        QVERIFY(m_driver->selector()->view()->isVisible());
        m_driver->selector()->hidePopup();
        // Nor is it taken away from there when PLAY comes back.
        Q_EMIT m_driver->versions().installFailed(u"cut"_s);
        QCOMPARE(focused(), m_driver->selector());
    }

    // PLAY goes and comes back while the keyboard is elsewhere.
    void staysWhereItIsWhenPlayIsDisabled()
    {
        serveSilentDownload();
        QWidget* list = m_driver->findWidget("newsList");
        list->setFocus(Qt::TabFocusReason);
        QVERIFY(QMetaObject::invokeMethod(&m_driver->window(), "onPlayClicked"));
        QVERIFY(!m_driver->play()->isEnabled());
        QCOMPARE(focused(), list);
        Q_EMIT m_driver->versions().installFailed(u"cut"_s);
        QVERIFY(m_driver->play()->isEnabled());
        QCOMPARE(focused(), list);
    }

    void leavesTheSelectorToTheMouse()
    {
        startDownloadByKeyboard();
        QTest::mousePress(m_driver->selector(), Qt::LeftButton);
        QVERIFY(m_driver->selector()->view()->isVisible());
        Q_EMIT m_driver->versions().installFailed(u"cut"_s);
        QVERIFY(focused() != m_driver->play());
        m_driver->selector()->hidePopup();
    }

    void goesToPlayAfterSigningIn_data()
    {
        QTest::addColumn<QByteArray>("last");
        QTest::newRow("Return in the password") << QByteArray("passwordField");
        QTest::newRow("Login") << QByteArray("loginButton");
        QTest::newRow("Register") << QByteArray("registerButton");
    }

    void goesToPlayAfterSigningIn()
    {
        QFETCH(QByteArray, last);
        signInByKeyboard(last.constData());
        QTRY_COMPARE(m_driver->status(), u"Logged in as Ada"_s);
        QCOMPARE(focused(), m_driver->play());
        QVERIFY(m_driver->play()->isEnabled());
    }

    void goesToTheUserNameAfterSigningOut()
    {
        openSignedIn();
        m_driver->server().answer("/auth/logout", HttpAnswer::json("{}"));
        m_driver->findWidget("logoutButton")->setFocus(Qt::TabFocusReason);
        press(Qt::Key_Space);
        QTRY_COMPARE(m_driver->status(), u"Logged out"_s);
        QCOMPARE(focused(), m_driver->findWidget("usernameField"));
    }

    // PLAY comes back when the session ends, but out of sight: no place for the keyboard.
    void keepsTheKeyboardInSightWhenTheSessionEndsDuringADownload()
    {
        startDownloadByKeyboard();
        m_driver->server().answer("/auth/logout", HttpAnswer::json("{}"));
        m_driver->auth().logout(u"secret"_s);
        QTRY_COMPARE(m_driver->status(), u"Logged out"_s);
        QVERIFY(focused()->isVisible());
        QCOMPARE(QApplication::focusWidget(), focused());
    }

    void leavesTheKeyboardWhereSomebodyTypes()
    {
        signInByKeyboard("loginButton");
        m_driver->click(m_driver->nav("Settings"));
        m_driver->click("gameDirField");
        QTRY_COMPARE(m_driver->status(), u"Logged in as Ada"_s);
        QCOMPARE(focused(), m_driver->findWidget("gameDirField"));

        m_driver->server().answer("/auth/logout", HttpAnswer::json("{}"));
        m_driver->click("logoutButton");
        m_driver->click("gameDirField");
        QTRY_COMPARE(m_driver->status(), u"Logged out"_s);
        QCOMPARE(focused(), m_driver->findWidget("gameDirField"));
    }

    void logsInOnceForAHeldReturn()
    {
        signInByKeyboard("passwordField", true);
        QTRY_COMPARE(m_driver->status(), u"Logged in as Ada"_s);
        QCOMPARE(m_driver->server().requestCount("/auth/login"), 1);
    }

    void savesTheProfileOnReturn_data()
    {
        QTest::addColumn<QByteArray>("field");
        QTest::addColumn<Qt::Key>("key");
        for (const char* field :
             {"nameField", "versionCombo", "xmsSpin", "xmxSpin", "extraArgsField"})
            QTest::newRow(field) << QByteArray(field) << Qt::Key_Return;
        QTest::newRow("the keypad") << QByteArray("nameField") << Qt::Key_Enter;
    }

    void savesTheProfileOnReturn()
    {
        QFETCH(QByteArray, field);
        QFETCH(Qt::Key, key);
        openEditor();
        m_driver->type("nameField", u"New"_s);
        m_driver->findWidget(field.constData())->setFocus(Qt::TabFocusReason);
        QTest::keyClick(focused(), key, key == Qt::Key_Enter ? Qt::KeypadModifier : Qt::NoModifier);
        QCOMPARE(m_driver->page(), 0);
        QVERIFY(ProfileManager::get().find(u"New"_s));
        QCOMPARE(ProfileManager::get().profiles().size(), 2);
    }

    // What was typed into a spin box counts before the profile is saved.
    void savesWhatWasTypedIntoASpinBox()
    {
        openEditor();
        m_driver->type("nameField", u"New"_s);
        auto* spin = m_driver->find<QSpinBox>("xmxSpin");
        spin->setFocus(Qt::TabFocusReason);
        spin->selectAll();
        QTest::keyClicks(spin, u"4096"_s);
        press(Qt::Key_Return);
        QVERIFY(ProfileManager::get().find(u"New"_s));
        QCOMPARE(ProfileManager::get().find(u"New"_s)->xmx, 4096);
    }

    void savesOnceForAHeldReturn()
    {
        openEditor();
        m_driver->type("nameField", u"New"_s);
        hold(Qt::Key_Return);
        // The repetitions reach what has the keyboard by then, and open nothing.
        QCOMPARE(m_driver->page(), 0);
        QCOMPARE(ProfileManager::get().profiles().size(), 2);
    }

    void showsTheObjectionOnReturn()
    {
        openEditor();
        press(Qt::Key_Return);
        QCOMPARE(m_driver->page(), 3);
        QCOMPARE(m_driver->editorError()->text(), u"Profile name cannot be empty"_s);
    }

    void leavesReturnOnAButtonToTheButton()
    {
        openEditor();
        m_driver->type("nameField", u"New"_s);
        m_driver->findWidget("editorCancelButton")->setFocus(Qt::TabFocusReason);
        press(Qt::Key_Return);
        QVERIFY(!ProfileManager::get().find(u"New"_s));
    }

    void finishesWhatIsBeingComposedFirst()
    {
        openEditor();
        m_driver->type("nameField", u"New"_s);
        QInputMethodEvent composing(u"ni"_s, {});
        QApplication::sendEvent(focused(), &composing);
        press(Qt::Key_Return);
        QCOMPARE(m_driver->page(), 3);
        QInputMethodEvent done;
        done.setCommitString(u"x"_s);
        QApplication::sendEvent(focused(), &done);
        press(Qt::Key_Return);
        QVERIFY(ProfileManager::get().find(u"Newx"_s));
    }

    void leavesTheEditorOnEscape_data()
    {
        QTest::addColumn<QByteArray>("field");
        for (const char* field :
             {"nameField", "versionCombo", "xmsSpin", "extraArgsField", "editorSaveButton"})
            QTest::newRow(field) << QByteArray(field);
    }

    void leavesTheEditorOnEscape()
    {
        QFETCH(QByteArray, field);
        openEditor();
        m_driver->type("nameField", u"New"_s);
        m_driver->findWidget(field.constData())->setFocus(Qt::TabFocusReason);
        press(Qt::Key_Escape);
        QCOMPARE(m_driver->page(), 2);
        QVERIFY(!ProfileManager::get().find(u"New"_s));
    }

    void closesOnlyTheListOfVersionsOnEscape()
    {
        openEditor();
        auto* combo = m_driver->find<QComboBox>("versionCombo");
        combo->setFocus(Qt::TabFocusReason);
        press(Qt::Key_Space);
        QVERIFY(combo->view()->isVisible());
        QTest::keyClick(combo->view(), Qt::Key_Escape);
        QTRY_VERIFY(!combo->view()->isVisible());
        QCOMPARE(m_driver->page(), 3);
        press(Qt::Key_Space);
        QTest::keyClick(combo->view(), Qt::Key_Down);
        QTest::keyClick(combo->view(), Qt::Key_Return);
        QTRY_VERIFY(!combo->view()->isVisible());
        QCOMPARE(m_driver->page(), 3);
        QCOMPARE(combo->currentIndex(), 1);
    }

    void savesTheSettingsOnReturn()
    {
        openSignedIn();
        for (const char* field :
             {"manifestUrlField", "serverUrlField", "javaPathField", "gameDirField"}) {
            m_driver->click(m_driver->nav("Settings"));
            m_driver->type("javaPathField", QString::fromLatin1(field));
            m_driver->findWidget(field)->setFocus(Qt::TabFocusReason);
            press(Qt::Key_Return);
            QCOMPARE(m_driver->page(), 0);
            QCOMPARE(Settings::get().javaPath(), QString::fromLatin1(field));
        }
    }

    void leavesTheSettingsOnEscape()
    {
        openSignedIn();
        m_driver->click(m_driver->nav("Settings"));
        m_driver->type("javaPathField", u"elsewhere"_s);
        press(Qt::Key_Escape);
        QCOMPARE(m_driver->page(), 0);
        QVERIFY(Settings::get().javaPath() != u"elsewhere");
        // As after Cancel, the edit is still there.
        QCOMPARE(m_driver->find<QLineEdit>("javaPathField")->text(), u"elsewhere"_s);
    }

    void editsAProfileOnReturn()
    {
        openSignedIn();
        m_driver->click(m_driver->nav("Profiles"));
        auto* list = m_driver->find<QListWidget>("profileList");
        list->setCurrentRow(0);
        list->setFocus(Qt::TabFocusReason);
        press(Qt::Key_Return);
        QCOMPARE(m_driver->page(), 3);
        QCOMPARE(m_driver->find<QLineEdit>("nameField")->text(), u"A"_s);
        press(Qt::Key_Escape);
        list->setFocus(Qt::TabFocusReason);
        hold(Qt::Key_Return); // and does not save what it has just opened
        QCOMPARE(m_driver->page(), 3);
    }

    void doesNothingOnReturnInTheUserName()
    {
        m_driver->openAndWait();
        m_driver->activate();
        m_driver->type("passwordField", u"p"_s);
        m_driver->type("usernameField", u"Ada"_s);
        const QString before = m_driver->status();
        press(Qt::Key_Return);
        QCOMPARE(m_driver->status(), before);
        QCOMPARE(m_driver->server().requestCount("/auth/login"), 0);
    }

private:
    void openSignedIn()
    {
        m_driver->storeSession();
        m_driver->openAndWait();
        m_driver->activate();
    }

    void openEditor()
    {
        openSignedIn();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->click("newProfileButton");
    }

    // A version whose jar never arrives: PLAY stays disabled.
    void serveSilentDownload()
    {
        Settings::get().setJavaPath(u"/usr/bin/java"_s);
        const GameVersion version = m_driver->serveVersion(u"1.0"_s, "jar");
        m_driver->server().answer("/jars/1.0.jar", HttpAnswer::silence());
        m_driver->serveManifest({version});
        openSignedIn();
    }

    void startDownloadByKeyboard()
    {
        serveSilentDownload();
        m_driver->play()->setFocus(Qt::TabFocusReason);
        press(Qt::Key_Space);
        QCOMPARE(m_driver->status(), u"Downloading 1.0..."_s);
    }

    void signInByKeyboard(const char* last, bool held = false)
    {
        const auto session = HttpAnswer::json(R"({"username":"Ada","uuid":"u","token":"t"})");
        m_driver->server().answer("/auth/login", session);
        m_driver->server().answer("/auth/register", session);
        m_driver->openAndWait();
        m_driver->activate();
        m_driver->type("usernameField", u"Ada"_s);
        m_driver->type("passwordField", u"p"_s);
        m_driver->findWidget(last)->setFocus(Qt::TabFocusReason);
        const Qt::Key key = qstrcmp(last, "passwordField") == 0 ? Qt::Key_Return : Qt::Key_Space;
        if (held)
            hold(key);
        else
            press(key);
    }

    void press(Qt::Key key) { QTest::keyClick(focused(), key); }

    // As X11 tells of a key that is not let go.
    void hold(Qt::Key key)
    {
        QTest::keyPress(focused(), key);
        for (int i = 0; i < 5; ++i) {
            QKeyEvent repeated(QEvent::KeyPress, key, Qt::NoModifier, u"\r"_s, true);
            QApplication::sendEvent(focused(), &repeated);
        }
        QTest::keyRelease(focused(), key);
    }

    QWidget* focused() { return m_driver->window().focusWidget(); }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowKeyboard)
#include "tst_main_window_keyboard.moc"
