#include "app/settings.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

using namespace Qt::StringLiterals;

// The window as it is met without a pointer or without eyes: what assistive technology is told and
// may do, and where the keyboard is while PLAY has work to do.
class TestMainWindowAssistive : public QObject
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

    void saysWhatEveryComboBoxIsFor()
    {
        m_driver->openAndWait();
        int seen = 0;
        for (auto* combo : m_driver->window().findChildren<QComboBox*>()) {
            const auto labels =
                QAccessible::queryAccessibleInterface(combo)->relations(QAccessible::Label);
            QVERIFY2(labels.size() == 1, qPrintable(combo->objectName()));
            QVERIFY(!labels.first().first->text(QAccessible::Name).isEmpty());
            ++seen;
        }
        QCOMPARE(seen, 2);
        const auto* selector = QAccessible::queryAccessibleInterface(m_driver->selector());
        QCOMPARE(selector->relations(QAccessible::Label).first().first->text(QAccessible::Name),
                 u"Profile or version to play"_s);
    }

    void navigatesWhenPressedThroughTheBus_data()
    {
        QTest::addColumn<QByteArray>("button");
        QTest::addColumn<int>("page");
        QTest::newRow("profiles") << QByteArray("Profiles") << 2;
        QTest::newRow("account") << QByteArray("Profile") << 4;
        QTest::newRow("settings") << QByteArray("Settings") << 5;
    }

    void navigatesWhenPressedThroughTheBus()
    {
        QFETCH(QByteArray, button);
        QFETCH(int, page);
        m_driver->openAndWait();
        auto* accessible = QAccessible::queryAccessibleInterface(m_driver->nav(button.constData()));
        QCOMPARE(accessible->text(QAccessible::Name), QString::fromLatin1(button));
        QVERIFY(accessible->state().checkable);
        QVERIFY(!accessible->state().checked);
        QVERIFY(accessible->state().focusable);
        // The first action is what a screen reader does with a control.
        const QString action = accessible->actionInterface()->actionNames().value(0);
        accessible->actionInterface()->doAction(action);
        QCOMPARE(m_driver->page(), page);
        QVERIFY(accessible->state().checked);

        accessible = QAccessible::queryAccessibleInterface(m_driver->nav("News"));
        accessible->actionInterface()->doAction(action);
        QCOMPARE(m_driver->page(), 0);
    }

    void bringsTheKeyboardBackToPlay()
    {
        startDownloadByKeyboard();
        QCOMPARE(focused(), m_driver->selector());
        Q_EMIT m_driver->versions().installFailed(u"cut"_s);
        QVERIFY(m_driver->play()->isEnabled());
        QCOMPARE(focused(), m_driver->play());
    }

    void leavesTheKeyboardWhereItWasMoved()
    {
        startDownloadByKeyboard();
        QTest::keyClick(focused(), Qt::Key_Backtab);
        QWidget* elsewhere = focused();
        QVERIFY(elsewhere != m_driver->selector());
        Q_EMIT m_driver->versions().installFailed(u"cut"_s);
        QVERIFY(m_driver->play()->isEnabled());
        QCOMPARE(focused(), elsewhere);
        // And not at the end of some later task either.
        m_driver->selector()->setFocus();
        Q_EMIT m_driver->versions().installFailed(u"again"_s);
        QCOMPARE(focused(), m_driver->selector());
    }

private:
    // A version whose jar never arrives: PLAY stays disabled.
    void startDownloadByKeyboard()
    {
        Settings::get().setJavaPath(u"/usr/bin/java"_s);
        const GameVersion version = m_driver->serveVersion(u"1.0"_s, "jar");
        m_driver->server().answer("/jars/1.0.jar", HttpAnswer::silence());
        m_driver->serveManifest({version});
        m_driver->openAndWait();
        m_driver->activate();
        m_driver->play()->setFocus(Qt::TabFocusReason);
        QTest::keyClick(focused(), Qt::Key_Space);
        QCOMPARE(m_driver->status(), u"Downloading 1.0..."_s);
        QVERIFY(!m_driver->play()->isEnabled());
    }

    QWidget* focused() { return m_driver->window().focusWidget(); }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowAssistive)
#include "tst_main_window_assistive.moc"
