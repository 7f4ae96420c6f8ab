#include "app/settings.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QBoxLayout>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>
#include <QTextBrowser>
#include <QToolButton>
#include <QWindow>

// The news pages and the settings page.
class TestMainWindowPages : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init() { m_driver = std::make_unique<WindowDriver>(); }
    void cleanup() { m_driver.reset(); }

    void laysOutTheNews()
    {
        m_driver->openAndWait();
        auto* listLayout = qobject_cast<QVBoxLayout*>(m_driver->pages()->widget(0)->layout());
        QVERIFY(listLayout);
        QCOMPARE(listLayout->contentsMargins(), QMargins(12, 12, 12, 8));
        QCOMPARE(listLayout->count(), 1);
        QCOMPARE(listLayout->itemAt(0)->widget(), list());

        auto* reader = qobject_cast<QVBoxLayout*>(m_driver->pages()->widget(1)->layout());
        QVERIFY(reader);
        QCOMPARE(reader->contentsMargins(), QMargins(12, 12, 12, 8));
        QCOMPARE(reader->count(), 4);
        QCOMPARE(reader->itemAt(0)->widget(), m_driver->findWidget("newsBackButton"));
        QCOMPARE(reader->itemAt(1)->widget(), m_driver->findWidget("newsTitle"));
        QCOMPARE(reader->itemAt(2)->widget(), m_driver->newsDate());
        QCOMPARE(reader->itemAt(3)->widget(), m_driver->findWidget("newsBody"));
        QCOMPARE(reader->stretch(3), 1);
        QCOMPARE(m_driver->find<QPushButton>("newsBackButton")->text(), QStringLiteral("← Back"));
        QCOMPARE(m_driver->find<QPushButton>("newsBackButton")->maximumWidth(), 90);
        QCOMPARE(m_driver->find<QPushButton>("newsBackButton")->minimumWidth(), 90);
    }

    void showsAPlaceholderWithoutNews()
    {
        m_driver->openAndWait();
        QCOMPARE(list()->count(), 1);
        QCOMPARE(list()->item(0)->text(),
                 QStringLiteral("No news yet - check back after the next release."));
        QCOMPARE(list()->item(0)->flags(), Qt::NoItemFlags);
        m_driver->clickRow(list(), 0);
        QTest::keyClick(list(), Qt::Key_Return);
        QCOMPARE(m_driver->page(), 0);
        QVERIFY(!list()->item(0)->isSelected());
    }

    void listsNewsInOrder()
    {
        m_driver->serveManifest({}, {{QStringLiteral("First"), QStringLiteral("2026-01-02"), {}},
                                     {QStringLiteral("Second"), {}, {}}});
        m_driver->openAndWait();
        QCOMPARE(list()->count(), 2);
        QCOMPARE(list()->item(0)->text(), QStringLiteral("First   -   2026-01-02"));
        QCOMPARE(list()->item(1)->text(), QStringLiteral("Second"));
        QCOMPARE(list()->item(0)->toolTip(), QStringLiteral("Click to read"));
        QCOMPARE(list()->item(1)->toolTip(), QStringLiteral("Click to read"));
    }

    void opensAnItemByOneClick()
    {
        m_driver->serveManifest(
            {}, {{QStringLiteral("First"), QStringLiteral("2026-01-02"), QStringLiteral("one")},
                 {QStringLiteral("Second"), {}, QStringLiteral("two <b>bold</b>\n# three")}});
        m_driver->openAndWait();
        m_driver->clickRow(list(), 0);
        QCOMPARE(m_driver->page(), 1);
        QCOMPARE(m_driver->find<QLabel>("newsTitle")->text(), QStringLiteral("First"));
        QCOMPARE(m_driver->newsDate()->text(), QStringLiteral("2026-01-02"));
        QVERIFY(m_driver->newsDate()->isVisible());
        QCOMPARE(body()->toPlainText(), QStringLiteral("one"));
        m_driver->click("newsBackButton");
        QCOMPARE(m_driver->page(), 0);

        m_driver->clickRow(list(), 1);
        QCOMPARE(m_driver->find<QLabel>("newsTitle")->text(), QStringLiteral("Second"));
        QVERIFY(m_driver->newsDate()->isHidden());
        QCOMPARE(body()->toPlainText(), QStringLiteral("two <b>bold</b>\n# three"));
    }

    // The button "← Back" then stands where the headline stood.
    void staysInTheReaderAfterADoubleClick()
    {
        m_driver->serveManifest({}, {{QStringLiteral("First"), {}, {}}});
        m_driver->openAndWait();
        QWindow* handle = m_driver->window().windowHandle();
        const QPoint headline =
            list()->viewport()->mapTo(&m_driver->window(),
                                      list()->visualItemRect(list()->item(0)).topLeft()) +
            QPoint(20, 12);
        QTest::mouseDClick(handle, Qt::LeftButton, {}, headline);
        QTRY_COMPARE(m_driver->page(), 1);
        auto* back = m_driver->find<QPushButton>("newsBackButton");
        QCOMPARE(m_driver->window().childAt(headline), back);
        m_driver->click(back);
        QCOMPARE(m_driver->page(), 0);
    }

    void opensAnItemByTheReturnKey()
    {
        m_driver->serveManifest({}, {{QStringLiteral("First"), {}, QStringLiteral("one")},
                                     {QStringLiteral("Second"), {}, QStringLiteral("two")}});
        m_driver->openAndWait();
        list()->setFocus(Qt::TabFocusReason);
        QTest::keyClick(list(), Qt::Key_Down);
        QTest::keyClick(list(), Qt::Key_Return);
        QCOMPARE(m_driver->page(), 1);
        QCOMPARE(body()->toPlainText(), QStringLiteral("two"));
    }

    // Rows are looked up in the manifest of now, not in a copy.
    void ignoresARowThatTheManifestNoLongerHas()
    {
        m_driver->serveManifest({}, {{QStringLiteral("First"), {}, QStringLiteral("one")}});
        m_driver->openAndWait();
        QVERIFY(m_driver->versions().parseManifest("{\"versions\":[]}"));
        m_driver->clickRow(list(), 0);
        QCOMPARE(m_driver->page(), 0);
    }

    void laysOutTheSettings()
    {
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Settings"));
        auto* layout = qobject_cast<QVBoxLayout*>(m_driver->pages()->widget(5)->layout());
        QVERIFY(layout);
        QCOMPARE(layout->contentsMargins(), QMargins(12, 12, 12, 8));
        QCOMPARE(layout->count(), 4);
        QCOMPARE(qobject_cast<QLabel*>(layout->itemAt(0)->widget())->text(),
                 QStringLiteral("Settings"));
        auto* form = qobject_cast<QFormLayout*>(layout->itemAt(1)->layout());
        QVERIFY(form);
        QCOMPARE(form->rowCount(), 4);
        const QList<std::pair<QString, const char*>> rows{
            {QStringLiteral("Manifest URL:"), "manifestUrlField"},
            {QStringLiteral("Auth server:"), "serverUrlField"},
            {QStringLiteral("Java path:"), "javaPathField"},
            {QStringLiteral("Game directory:"), "gameDirField"}};
        for (int row = 0; row < rows.size(); ++row) {
            const auto* label =
                qobject_cast<QLabel*>(form->itemAt(row, QFormLayout::LabelRole)->widget());
            QCOMPARE(label->text(), rows[row].first);
            QCOMPARE(label->buddy(), field(rows[row].second));
            QCOMPARE(form->itemAt(row, QFormLayout::FieldRole)->widget(), field(rows[row].second));
        }
        QVERIFY(layout->itemAt(2)->spacerItem());
        const QLayout* buttons = layout->itemAt(3)->layout();
        QCOMPARE(buttons->count(), 3);
        QVERIFY(buttons->itemAt(0)->spacerItem());
        QCOMPARE(buttons->itemAt(1)->widget()->property("text").toString(), QStringLiteral("Save"));
        QCOMPARE(buttons->itemAt(2)->widget()->property("text").toString(),
                 QStringLiteral("Cancel"));
    }

    void showsTheStoredSettings()
    {
        const QString gameDir = throwaway_home::path() + u"/games";
        Settings::get().setJavaPath(QString());
        Settings::get().setGameDir(gameDir);
        m_driver->openAndWait();
        QCOMPARE(field("manifestUrlField")->text(), Settings::get().manifestUrl());
        QCOMPARE(field("serverUrlField")->text(), m_driver->server().origin());
        QCOMPARE(field("javaPathField")->text(), QString());
        QCOMPARE(field("gameDirField")->text(), gameDir);
    }

    void savesTrimmedAndFetchesTheManifestAgain()
    {
        m_driver->openAndWait();
        m_driver->server().answer("/other.json", HttpAnswer::json("{\"versions\":[]}"));
        const QString manifest = m_driver->server().url(QStringLiteral("/other.json"));
        const QString gameDir = throwaway_home::path() + u"/elsewhere";
        m_driver->click(m_driver->nav("Settings"));
        m_driver->type("manifestUrlField", manifest + u"  ");
        m_driver->type("serverUrlField", QStringLiteral(" http://127.0.0.1:9 "));
        m_driver->type("javaPathField", QString());
        m_driver->type("gameDirField", QString(u"\t" + gameDir));
        QSignalSpy ready(&m_driver->versions(), &VersionManager::manifestReady);
        m_driver->click("settingsSaveButton");
        QCOMPARE(m_driver->page(), 0);
        QCOMPARE(m_driver->status(), QStringLiteral("Settings saved"));
        QCOMPARE(Settings::get().manifestUrl(), manifest);
        QCOMPARE(Settings::get().serverUrl(), QStringLiteral("http://127.0.0.1:9"));
        QCOMPARE(Settings::get().javaPath(), QString());
        QCOMPARE(Settings::get().gameDir(), gameDir);

        QTRY_COMPARE(ready.size(), 1);
        QCOMPARE(m_driver->server().requestCount("/other.json"), 1);
        QCOMPARE(m_driver->status(), QStringLiteral("0 versions available"));
    }

    void keepsCancelledEditsInTheFields()
    {
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Settings"));
        m_driver->type("javaPathField", QStringLiteral("/cancelled/java"));
        m_driver->server().forgetRequests();
        const QString before = m_driver->status();
        m_driver->click("settingsCancelButton");
        QCOMPARE(m_driver->page(), 0);
        QCOMPARE(m_driver->status(), before);
        QCOMPARE(Settings::get().javaPath(), QStringLiteral("java"));
        m_driver->click(m_driver->nav("Settings"));
        QCOMPARE(field("javaPathField")->text(), QStringLiteral("/cancelled/java"));
        QVERIFY(m_driver->server().requests().isEmpty());
        m_driver->click("settingsSaveButton");
        QCOMPARE(Settings::get().javaPath(), QStringLiteral("/cancelled/java"));
    }

private:
    QListWidget* list() { return m_driver->find<QListWidget>("newsList"); }
    QTextBrowser* body() { return m_driver->find<QTextBrowser>("newsBody"); }
    QLineEdit* field(const char* name) { return m_driver->find<QLineEdit>(name); }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowPages)
#include "tst_main_window_pages.moc"
