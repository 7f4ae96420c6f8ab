#include "profiles/profile_manager.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/elided_label.h"
#include "ui/main_window.h"
#include "ui/profile_page.h"
#include "versions/version_manager.h"

#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QFontInfo>
#include <QHelpEvent>
#include <QImage>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedWidget>
#include <QTest>
#include <QTextBlock>
#include <QToolButton>
#include <QToolTip>

// Whether the window can be read and worked: fonts as drawn, names for assistive technology, the
// way of the Tab key, the focus as drawn, long texts.
class TestMainWindowAccess : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->storeSession();
        m_driver->serveManifest(
            {{QStringLiteral("1.0"), QStringLiteral("http://x/"), {}, {}}},
            {{QStringLiteral("News"), QStringLiteral("2026-01-02"), QStringLiteral("text")}});
        QVERIFY(ProfileManager::get().save(
            {QStringLiteral("A"), QStringLiteral("1.0"), 512, 2048, {}}, {}, nullptr));
    }
    void cleanup() { m_driver.reset(); }

    // The launcher's style sheet asks for 13 pixels everywhere, and beats setFont.
    void drawsHeadersBoldAndLarge_data()
    {
        QTest::addColumn<int>("page");
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<int>("points");
        QTest::newRow("profiles") << 2 << QByteArray("profilesHeader") << 14;
        QTest::newRow("editor") << 3 << QByteArray("editorHeader") << 14;
        QTest::newRow("settings") << 5 << QByteArray("settingsHeader") << 14;
        QTest::newRow("news title") << 1 << QByteArray("newsTitle") << 16;
    }

    void drawsHeadersBoldAndLarge()
    {
        QFETCH(int, page);
        QFETCH(QByteArray, name);
        QFETCH(int, points);
        m_driver->openAndWait();
        m_driver->clickRow(m_driver->find<QListWidget>("newsList"), 0);
        m_driver->pages()->setCurrentIndex(page);
        auto* label = m_driver->find<QLabel>(name.constData());
        QFont expected = m_driver->window().font();
        expected.setPointSize(points);
        expected.setWeight(QFont::Bold);
        QCOMPARE(inkOf(label->grab().toImage()).size(),
                 inkOf(drawn(label->text(), expected)).size());
        QFont plain = expected;
        plain.setWeight(QFont::Normal);
        QVERIFY(inkOf(drawn(label->text(), plain)).size() !=
                inkOf(drawn(label->text(), expected)).size());
    }

    void drawsTheConsoleInOneWidth()
    {
        m_driver->openAndWait();
        auto* console = m_driver->find<QPlainTextEdit>("console");
        console->setPlainText(QStringLiteral("iiiiiiii\nWWWWWWWW"));
        m_driver->click("consoleButton");
        const auto widthOf = [console](int block) {
            QTextCursor cursor(console->document()->findBlockByNumber(block));
            cursor.movePosition(QTextCursor::EndOfBlock);
            return console->cursorRect(cursor).left();
        };
        QVERIFY(widthOf(0) > 20);
        QCOMPARE(widthOf(0), widthOf(1));
        QVERIFY(console->font().families().startsWith(QStringLiteral("Consolas")));
    }

    void drawsNavigationTextsAtTheLeft()
    {
        m_driver->openAndWait();
        QList<int> lefts;
        for (const char* text : {"News", "Profiles", "Settings"}) {
            // Without the frame, which only the checked one has.
            const QImage image = m_driver->nav(text)->grab().toImage();
            lefts.append(5 +
                         inkOf(image.copy(5, 5, image.width() - 10, image.height() - 10)).left());
        }
        for (const int left : lefts)
            QVERIFY2(left >= 13 && left <= 18, qPrintable(QString::number(left)));
    }

    void namesEverythingThatCanBeOperated()
    {
        m_driver->openAndWait();
        int seen = 0;
        for (QWidget* widget : operable()) {
            const QString name =
                QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name);
            QVERIFY2(!name.trimmed().isEmpty(), qPrintable(widget->objectName()));
            QVERIFY2(!widget->objectName().isEmpty(), qPrintable(name));
            ++seen;
        }
        QVERIFY(seen > 30);
        QCOMPARE(QAccessible::queryAccessibleInterface(m_driver->findWidget("progressBar"))
                     ->text(QAccessible::Name),
                 QStringLiteral("Progress"));
    }

    void givesEveryFieldLabelItsField()
    {
        m_driver->openAndWait();
        int seen = 0;
        for (const int page : {3, 5}) {
            for (const auto* label : m_driver->pages()->widget(page)->findChildren<QLabel*>()) {
                const bool caption = label->text().endsWith(u':') || label->text() == u"Xms" ||
                                     label->text() == u"Xmx";
                QVERIFY2(!caption || label->buddy(), qPrintable(label->text()));
                seen += caption;
            }
        }
        QCOMPARE(seen, 10);
    }

    void tabsInTheOrderOfTheEye_data()
    {
        QTest::addColumn<int>("page");
        QTest::addColumn<bool>("signedIn");
        QTest::addColumn<QStringList>("way");
        const QStringList nav{QStringLiteral("News"),         QStringLiteral("Profiles"),
                              QStringLiteral("Profile"),      QStringLiteral("Settings"),
                              QStringLiteral("logoutButton"), QStringLiteral("consoleButton")};
        const QStringList bar{QStringLiteral("launchSelector"), QStringLiteral("playButton"),
                              QStringLiteral("console")};
        QTest::newRow("signed out")
            << 0 << false
            << QStringList{QStringLiteral("News"),           QStringLiteral("Profiles"),
                           QStringLiteral("Settings"),       QStringLiteral("usernameField"),
                           QStringLiteral("passwordField"),  QStringLiteral("loginButton"),
                           QStringLiteral("registerButton"), QStringLiteral("consoleButton"),
                           QStringLiteral("newsList"),       QStringLiteral("launchSelector"),
                           QStringLiteral("console")};
        QTest::newRow("news") << 0 << true << nav + QStringList{QStringLiteral("newsList")} + bar;
        QTest::newRow("reader") << 1 << true
                                << nav +
                                       QStringList{QStringLiteral("newsBackButton"),
                                                   QStringLiteral("newsBody")} +
                                       bar;
        QTest::newRow("profiles") << 2 << true
                                  << nav + QStringList{QStringLiteral("newProfileButton"),
                                                       QStringLiteral("profileList"),
                                                       QStringLiteral("editProfileButton"),
                                                       QStringLiteral("playProfileButton"),
                                                       QStringLiteral("deleteProfileButton"),
                                                       QStringLiteral("profilesBackButton")} +
                                         bar;
        QTest::newRow("editor") << 3 << true
                                << nav + QStringList{QStringLiteral("nameField"),
                                                     QStringLiteral("versionCombo"),
                                                     QStringLiteral("xmsSpin"),
                                                     QStringLiteral("xmxSpin"),
                                                     QStringLiteral("extraArgsField"),
                                                     QStringLiteral("editorSaveButton"),
                                                     QStringLiteral("editorCancelButton")} +
                                       bar;
        QTest::newRow("settings") << 5 << true
                                  << nav + QStringList{QStringLiteral("manifestUrlField"),
                                                       QStringLiteral("serverUrlField"),
                                                       QStringLiteral("javaPathField"),
                                                       QStringLiteral("gameDirField"),
                                                       QStringLiteral("settingsSaveButton"),
                                                       QStringLiteral("settingsCancelButton")} +
                                         bar;
    }

    void tabsInTheOrderOfTheEye()
    {
        QFETCH(int, page);
        QFETCH(bool, signedIn);
        QFETCH(QStringList, way);
        m_driver->openAndWait();
        if (!signedIn) {
            m_driver->server().answer("/auth/logout", HttpAnswer::json("{}"));
            m_driver->click("logoutButton");
            QTRY_VERIFY(m_driver->findWidget("usernameField")->isVisible());
        }
        m_driver->click("consoleButton");
        m_driver->pages()->setCurrentIndex(page);
        m_driver->activate();
        m_driver->nav("News")->setFocus(Qt::TabFocusReason);
        QStringList walked;
        for (qsizetype i = 0; i < way.size(); ++i) {
            QWidget* focused = m_driver->window().focusWidget();
            walked.append(focused->objectName() == u"navButton"
                              ? qobject_cast<QToolButton*>(focused)->text()
                              : focused->objectName());
            QTest::keyClick(focused, Qt::Key_Tab);
        }
        QCOMPARE(walked, way);
        QCOMPARE(m_driver->window().focusWidget(), m_driver->nav("News"));
    }

    void showsWhereTheFocusIs()
    {
        m_driver->openAndWait();
        m_driver->click("consoleButton");
        m_driver->activate();
        int seen = 0;
        for (int page = 0; page < 6; ++page) {
            m_driver->pages()->setCurrentIndex(page);
            for (QWidget* widget : operable()) {
                if (!widget->isVisible())
                    continue;
                m_driver->window().setFocus();
                const QImage without = focusSignOf(widget);
                widget->setFocus(Qt::TabFocusReason);
                QVERIFY2(widget->hasFocus(), qPrintable(widget->objectName()));
                QVERIFY2(focusSignOf(widget) != without, qPrintable(widget->objectName()));
                ++seen;
            }
        }
        QVERIFY(seen > 50);
    }

    void isWorkedByTheKeyboardAlone()
    {
        m_driver->openAndWait();
        m_driver->activate();
        m_driver->nav("Profiles")->setFocus(Qt::TabFocusReason);
        press(Qt::Key_Space);
        QCOMPARE(m_driver->page(), 2);
        m_driver->findWidget("newProfileButton")->setFocus(Qt::TabFocusReason);
        press(Qt::Key_Space);
        QCOMPARE(m_driver->page(), 3);
        // The editor opens on its first field.
        QCOMPARE(m_driver->window().focusWidget(), m_driver->findWidget("nameField"));
        QTest::keyClicks(m_driver->window().focusWidget(), QStringLiteral("Typed"));
        for (int i = 0; i < 5; ++i)
            press(Qt::Key_Tab);
        press(Qt::Key_Space);
        QCOMPARE(m_driver->page(), 0);
        QVERIFY(ProfileManager::get().find(QStringLiteral("Typed")));
    }

    void letsALongStatusGiveWay()
    {
        m_driver->openAndWait();
        const QSize size = m_driver->window().size();
        const QSize least = m_driver->window().minimumSizeHint();
        const QString text = QString(u"<b>" + QStringLiteral("long\n").repeated(5000) + u"</b>");
        Q_EMIT m_driver->versions().installFailed(text);
        QTest::qWait(0);
        QCOMPARE(m_driver->status(), QString(u"Download failed: " + text));
        QCOMPARE(m_driver->statusLabel()->toolTip(), m_driver->status());
        QCOMPARE(m_driver->window().size(), size);
        QCOMPARE(m_driver->window().minimumSizeHint(), least);
        QVERIFY(m_driver->play()->geometry().right() < m_driver->play()->parentWidget()->width());
    }

    void showsTheWholeOfACutTextLiterallyInItsToolTip()
    {
        ElidedLabel label;
        label.setFixedWidth(80);
        label.showText(QStringLiteral("<img src='/etc/passwd'> & more than fits"));
        label.show();
        QVERIFY(QTest::qWaitForWindowExposed(&label));
        QHelpEvent help(QEvent::ToolTip, QPoint(5, 5), label.mapToGlobal(QPoint(5, 5)));
        QApplication::sendEvent(&label, &help);
        QCOMPARE(QToolTip::text(),
                 QStringLiteral("<p>&lt;img src='/etc/passwd'&gt; &amp; more than fits</p>"));
        QToolTip::hideText();
        QTRY_VERIFY(!QToolTip::isVisible());
        label.showText(QStringLiteral("fits"));
        QApplication::sendEvent(&label, &help);
        QVERIFY(!QToolTip::isVisible());
    }

    void drawsOutsideTextsLiterally()
    {
        ElidedLabel label;
        label.resize(300, 30);
        label.showText(QStringLiteral("<b>x</b>"));
        const QImage markup = label.grab().toImage();
        label.showText(QStringLiteral("x"));
        QVERIFY(inkOf(markup).width() > 3 * inkOf(label.grab().toImage()).width());
    }

    void cutsNothingOffWhenSmall()
    {
        m_driver->openAndWait();
        m_driver->click("consoleButton");
        m_driver->window().resize(1, 1);
        QTest::qWait(0);
        auto* middle = qobject_cast<QScrollArea*>(
            m_driver->window().centralWidget()->layout()->itemAt(1)->widget());
        for (int page = 0; page < 6; ++page) {
            m_driver->pages()->setCurrentIndex(page);
            QTest::qWait(0);
            for (QWidget* widget : operable()) {
                if (!widget->isVisible() || widget->inherits("QLineEdit"))
                    continue;
                if (middle->isAncestorOf(widget))
                    middle->ensureWidgetVisible(widget, 0, 0);
                QVERIFY2(widget->visibleRegion().boundingRect().size() == widget->size(),
                         qPrintable(widget->objectName()));
            }
        }
    }

private:
    static QImage drawn(const QString& text, const QFont& font)
    {
        QLabel label(text);
        label.setStyleSheet(QStringLiteral("font-size:%1pt; font-weight:%2;")
                                .arg(font.pointSize())
                                .arg(font.weight()));
        return label.grab().toImage();
    }

    // Of a list only the frame: its items change, too, but there may be none.
    static QImage focusSignOf(QWidget* widget)
    {
        const QImage image = widget->grab().toImage();
        return qobject_cast<QListWidget*>(widget) ? image.copy(0, 0, 2, image.height()) : image;
    }

    // The rectangle of everything that is not background.
    static QRect inkOf(const QImage& image)
    {
        const QRgb background = image.pixel(0, 0);
        QRect ink;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                if (image.pixel(x, y) != background)
                    ink |= QRect(x, y, 1, 1);
            }
        }
        return ink;
    }

    void press(Qt::Key key) { QTest::keyClick(m_driver->window().focusWidget(), key); }

    // Everything of the window's own that takes the focus; the account page has tests of its own.
    QList<QWidget*> operable()
    {
        QList<QWidget*> found;
        for (auto* widget : m_driver->window().findChildren<QWidget*>()) {
            const bool inner = widget->objectName().startsWith(u"qt_") ||
                               qobject_cast<QScrollBar*>(widget) ||
                               widget->window() != &m_driver->window() ||
                               m_driver->pages()->widget(4)->isAncestorOf(widget);
            const bool part =
                widget->focusProxy() || qobject_cast<QAbstractItemView*>(widget->parentWidget());
            if ((widget->focusPolicy() & Qt::TabFocus) && !inner && !part)
                found.append(widget);
        }
        return found;
    }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowAccess)
#include "tst_main_window_access.moc"
