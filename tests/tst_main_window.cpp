#include "app/settings.h"
#include "services/auth_client.h"
#include "services/update_manager.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/banner_widget.h"
#include "ui/main_window.h"
#include "ui/profile_page.h"
#include "versions/version_manager.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMetaMethod>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>
#include <QToolButton>

// The frame of the window: what stands where, what it says at start, navigation and console.
class TestMainWindow : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void declaresNoSignalAndFourSlotsInOrder()
    {
        const QMetaObject& meta = MainWindow::staticMetaObject;
        QList<QByteArray> methods;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            QCOMPARE(meta.method(i).methodType(), QMetaMethod::Slot);
            methods.append(meta.method(i).methodSignature());
        }
        QCOMPARE(methods, (QList<QByteArray>{"onPlayClicked()", "onLoginClicked()",
                                             "onRegisterClicked()", "onLogoutClicked()"}));
    }

    void makesTheServicesFirstAndInOrder()
    {
        WindowDriver driver;
        driver.open();
        QObjectList services;
        for (QObject* child : driver.window().children()) {
            if (!child->isWidgetType() && child->inherits("QObject") &&
                (qobject_cast<VersionManager*>(child) || qobject_cast<UpdateManager*>(child) ||
                 qobject_cast<AuthClient*>(child)))
                services.append(child);
        }
        QCOMPARE(services.size(), 3);
        QVERIFY(qobject_cast<VersionManager*>(services[0]));
        QVERIFY(qobject_cast<UpdateManager*>(services[1]));
        QVERIFY(qobject_cast<AuthClient*>(services[2]));
    }

    void hasItsTitleAndSize()
    {
        WindowDriver driver;
        driver.open();
        QCOMPARE(driver.window().windowTitle(), QStringLiteral("Tessellan Launcher 1.0.16"));
        QCOMPARE(driver.window().size(), QSize(1080, 600));
    }

    void stacksItsFourRows()
    {
        WindowDriver driver;
        driver.open();
        auto* rows = qobject_cast<QVBoxLayout*>(driver.window().centralWidget()->layout());
        QVERIFY(rows);
        QCOMPARE(rows->contentsMargins(), QMargins());
        QCOMPARE(rows->spacing(), 0);
        QCOMPARE(rows->count(), 4);
        QVERIFY(qobject_cast<BannerWidget*>(rows->itemAt(0)->widget()));
        QCOMPARE(rows->stretch(0), 0);
        QCOMPARE(rows->stretch(1), 1);
        // It scrolls where the screen is too short.
        auto* area = qobject_cast<QScrollArea*>(rows->itemAt(1)->widget());
        QVERIFY(area);
        auto* middle = qobject_cast<QHBoxLayout*>(area->widget()->layout());
        QVERIFY(middle);
        QCOMPARE(middle->contentsMargins(), QMargins());
        QCOMPARE(middle->spacing(), 0);
        QCOMPARE(middle->count(), 2);
        QCOMPARE(middle->itemAt(0)->widget(), driver.findWidget("sidebar"));
        QCOMPARE(middle->stretch(0), 0);
        QCOMPARE(middle->itemAt(1)->widget(), driver.pages());
        QCOMPARE(middle->stretch(1), 1);
        QCOMPARE(rows->itemAt(3)->widget(), driver.findWidget("console"));

        auto* bar = qobject_cast<QHBoxLayout*>(rows->itemAt(2)->widget()->layout());
        QVERIFY(bar);
        QCOMPARE(bar->contentsMargins(), QMargins(12, 6, 12, 12));
        QCOMPARE(widgetsOf(bar),
                 (QList<QWidget*>{driver.statusLabel(), driver.findWidget("progressBar"),
                                  driver.selector(), driver.play()}));
        QCOMPARE(bar->stretch(0), 1);
    }

    void holdsSixPages()
    {
        WindowDriver driver;
        driver.open();
        QStackedWidget* pages = driver.pages();
        QCOMPARE(pages->count(), 6);
        const auto isOn = [&](const char* name, int page) {
            return pages->widget(page)->isAncestorOf(driver.findWidget(name));
        };
        QVERIFY(isOn("newsList", 0));
        QVERIFY(isOn("newsBody", 1));
        QVERIFY(isOn("profileList", 2));
        QVERIFY(isOn("nameField", 3));
        QVERIFY(qobject_cast<ProfilePage*>(pages->widget(4)));
        QVERIFY(isOn("manifestUrlField", 5));
    }

    void stacksTheSidebar()
    {
        WindowDriver driver;
        driver.open();
        auto* sidebar = driver.findWidget("sidebar");
        QCOMPARE(sidebar->width(), 176);
        auto* column = qobject_cast<QVBoxLayout*>(sidebar->layout());
        QVERIFY(column);
        QCOMPARE(column->contentsMargins(), QMargins(10, 12, 10, 12));
        QCOMPARE(column->spacing(), 4);
        QCOMPARE(column->count(), 11);
        QCOMPARE(column->stretch(4), 1);
        QVERIFY(column->itemAt(4)->spacerItem());
        QCOMPARE(widgetsOf(column),
                 (QList<QWidget*>{driver.nav("News"), driver.nav("Profiles"), driver.nav("Profile"),
                                  driver.nav("Settings"), driver.findWidget("usernameField"),
                                  driver.findWidget("passwordField"),
                                  driver.findWidget("authLabel"), driver.findWidget("logoutButton"),
                                  driver.findWidget("consoleButton")}));
        auto* row = qobject_cast<QHBoxLayout*>(column->itemAt(7)->layout());
        QVERIFY(row);
        QCOMPARE(row->spacing(), 4);
        QCOMPARE(widgetsOf(row), (QList<QWidget*>{driver.findWidget("loginButton"),
                                                  driver.findWidget("registerButton")}));
    }

    void namesAndHintsInTheSidebar()
    {
        WindowDriver driver;
        driver.open();
        QCOMPARE(driver.find<QLineEdit>("usernameField")->placeholderText(),
                 QStringLiteral("Username"));
        QCOMPARE(driver.find<QLineEdit>("usernameField")->echoMode(), QLineEdit::Normal);
        QCOMPARE(driver.find<QLineEdit>("passwordField")->placeholderText(),
                 QStringLiteral("Password"));
        QCOMPARE(driver.find<QLineEdit>("passwordField")->echoMode(), QLineEdit::Password);
        QCOMPARE(driver.find<QPushButton>("loginButton")->text(), QStringLiteral("Login"));
        QCOMPARE(driver.find<QPushButton>("registerButton")->text(), QStringLiteral("Register"));
        QCOMPARE(driver.find<QPushButton>("logoutButton")->text(), QStringLiteral("Logout"));
        QCOMPARE(driver.find<QPushButton>("consoleButton")->text(), QStringLiteral("Console"));
        QCOMPARE(driver.find<QPushButton>("consoleButton")->toolTip(),
                 QStringLiteral("Toggle debug console (game stdout/stderr)"));
        QVERIFY(driver.find<QLabel>("authLabel")->wordWrap());
        for (auto* button :
             driver.window().findChildren<QToolButton*>(QStringLiteral("navButton"))) {
            QVERIFY(button->isCheckable());
            QVERIFY(!button->autoExclusive());
            QVERIFY(!button->group());
            QCOMPARE(button->toolButtonStyle(), Qt::ToolButtonTextOnly);
            QCOMPARE(button->sizePolicy().horizontalPolicy(), QSizePolicy::Expanding);
            QCOMPARE(button->sizePolicy().verticalPolicy(), QSizePolicy::Fixed);
        }
    }

    void startsOnTheNewsWithNothingToPlay()
    {
        WindowDriver driver;
        driver.server().answer("/manifest.json", HttpAnswer::silence());
        driver.open();
        QCOMPARE(driver.page(), 0);
        QCOMPARE(checkedButtons(driver), QStringList{QStringLiteral("News")});
        QCOMPARE(driver.status(), QStringLiteral("Checking for versions..."));
        QVERIFY(driver.play()->isHidden());
        QCOMPARE(driver.play()->text(), QStringLiteral("PLAY"));
        QVERIFY(driver.findWidget("progressBar")->isHidden());
        QCOMPARE(driver.findWidget("progressBar")->width(), 180);
        QVERIFY(driver.findWidget("console")->isHidden());
        QVERIFY(driver.nav("Profile")->isHidden());
        QVERIFY(driver.find<QLabel>("authLabel")->isHidden());
        QVERIFY(driver.findWidget("logoutButton")->isHidden());
        QCOMPARE(driver.selector()->count(), 0);
    }

    // The launcher's style sheet has a smaller minimum for combo boxes, and beats setMinimumWidth.
    void keepsTheSelectorAtLeast200Wide()
    {
        WindowDriver driver;
        driver.open();
        QCOMPARE(driver.selector()->minimumWidth(), 200);
        QVERIFY(driver.selector()->width() >= 200);
    }

    void offersPlayBeforeTheManifestHasArrivedWhenASessionIsStored()
    {
        WindowDriver driver;
        driver.server().answer("/manifest.json", HttpAnswer::silence());
        driver.storeSession();
        driver.open();
        QVERIFY(driver.play()->isVisible());
        QVERIFY(driver.play()->isEnabled());
        QVERIFY(driver.nav("Profile")->isVisible());
        QCOMPARE(driver.status(), QStringLiteral("Checking for versions..."));
    }

    void asksForTheManifestAtStart()
    {
        WindowDriver driver;
        driver.openAndWait();
        QVERIFY(driver.server().requestCount("/manifest.json") >= 1);
        QCOMPARE(driver.server().requestCount("/auth/validate"), 0);
    }

    void navigatesByTheSidebar()
    {
        WindowDriver driver;
        driver.storeSession();
        driver.openAndWait();
        driver.click(driver.nav("Profiles"));
        QCOMPARE(driver.page(), 2);
        QCOMPARE(checkedButtons(driver), QStringList{QStringLiteral("Profiles")});
        driver.click(driver.nav("Profile"));
        QCOMPARE(driver.page(), 4);
        QCOMPARE(checkedButtons(driver), QStringList{QStringLiteral("Profile")});
        driver.click(driver.nav("Settings"));
        QCOMPARE(driver.page(), 5);
        QCOMPARE(checkedButtons(driver), QStringList{QStringLiteral("Settings")});
        driver.click(driver.nav("News"));
        QCOMPARE(driver.page(), 0);
        QCOMPARE(checkedButtons(driver), QStringList{QStringLiteral("News")});
    }

    void checksTheButtonOfTheReaderAndTheEditor()
    {
        WindowDriver driver;
        driver.open();
        driver.pages()->setCurrentIndex(3);
        QCOMPARE(checkedButtons(driver), QStringList{QStringLiteral("Profiles")});
        driver.pages()->setCurrentIndex(1);
        QCOMPARE(checkedButtons(driver), QStringList{QStringLiteral("News")});
    }

    void leavesTheButtonOfThePresentPageUncheckedUntilThePageChanges()
    {
        WindowDriver driver;
        driver.open();
        driver.click(driver.nav("News"));
        QCOMPARE(driver.page(), 0);
        QCOMPARE(checkedButtons(driver), QStringList());
        driver.click(driver.nav("Settings"));
        QCOMPARE(checkedButtons(driver), QStringList{QStringLiteral("Settings")});
    }

    void recordsTheChosenEntryWhateverItsKind()
    {
        WindowDriver driver;
        driver.serveManifest({{QStringLiteral("1.0"), QStringLiteral("http://x/"), {}, {}},
                              {QStringLiteral("2.0"), QStringLiteral("http://x/"), {}, {}}});
        driver.openAndWait();
        driver.selector()->setFocus();
        QTest::keyClick(driver.selector(), Qt::Key_Down);
        QCOMPARE(driver.selector()->currentText(), QStringLiteral("2.0"));
        QCOMPARE(QSettings(QStringLiteral("Tessellan"), QStringLiteral("Launcher"))
                     .value(QStringLiteral("activeProfile"))
                     .toString(),
                 QStringLiteral("version:2.0"));
    }

    void togglesTheConsole()
    {
        WindowDriver driver;
        driver.open();
        auto* console = driver.find<QPlainTextEdit>("console");
        driver.click("consoleButton");
        QVERIFY(console->isVisible());
        driver.click("consoleButton");
        QVERIFY(!console->isVisible());
    }

    void opensTheConsoleForEachLineThatFindsItHidden()
    {
        WindowDriver driver;
        driver.open();
        auto* console = driver.find<QPlainTextEdit>("console");
        QVERIFY(console->isReadOnly());
        Q_EMIT driver.versions().gameLog(QStringLiteral("one"));
        QVERIFY(console->isVisible());
        driver.click("consoleButton");
        QVERIFY(!console->isVisible());
        Q_EMIT driver.versions().gameLog(QStringLiteral("two"));
        QVERIFY(console->isVisible());
        QCOMPARE(driver.consoleLines(),
                 (QStringList{QStringLiteral("one"), QStringLiteral("two")}));
    }

    void keepsTheNewest5000Lines()
    {
        WindowDriver driver;
        driver.open();
        for (int i = 1; i <= 5000; ++i)
            Q_EMIT driver.versions().gameLog(QString::number(i));
        QCOMPARE(driver.consoleLines().size(), 5000);
        QCOMPARE(driver.consoleLines().first(), QStringLiteral("1"));
        Q_EMIT driver.versions().gameLog(QStringLiteral("5001"));
        QCOMPARE(driver.consoleLines().size(), 5000);
        QCOMPARE(driver.consoleLines().first(), QStringLiteral("2"));
        QCOMPARE(driver.consoleLines().last(), QStringLiteral("5001"));
    }

    void showsLinesAsPlainTextInOneBlockEach()
    {
        WindowDriver driver;
        driver.open();
        auto* console = driver.find<QPlainTextEdit>("console");
        Q_EMIT driver.versions().gameLog(QStringLiteral("<b>10 %</b>\r20 %\u202930 %"));
        Q_EMIT driver.versions().gameLog(QStringLiteral("next"));
        QCOMPARE(console->blockCount(), 2);
        QVERIFY(console->toPlainText().startsWith(u"<b>10 %</b>"));
        QVERIFY(console->toPlainText().contains(u"30 %"));
    }

    void survivesItsEndOnEveryPage()
    {
        for (int page = 0; page < 6; ++page) {
            WindowDriver driver;
            driver.serveManifest({{QStringLiteral("1.0"), QStringLiteral("http://x/"), {}, {}}});
            driver.openAndWait();
            driver.pages()->setCurrentIndex(page);
            driver.selector()->setFocus();
            QTest::keyClick(driver.selector(), Qt::Key_Backtab);
            driver.click("consoleButton");
            driver.close();
        }
    }

private:
    static QList<QWidget*> widgetsOf(const QLayout* layout)
    {
        QList<QWidget*> widgets;
        for (int i = 0; i < layout->count(); ++i) {
            if (QWidget* widget = layout->itemAt(i)->widget())
                widgets.append(widget);
        }
        return widgets;
    }

    static QStringList checkedButtons(WindowDriver& driver)
    {
        QStringList checked;
        for (const auto* button :
             driver.window().findChildren<QToolButton*>(QStringLiteral("navButton"))) {
            if (button->isChecked())
                checked.append(button->text());
        }
        return checked;
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_main_window.moc"
