#include "app/settings.h"
#include "tests/hostile/manifests.h"
#include "tests/support/costs.h"
#include "tests/support/heartbeat.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QComboBox>
#include <QDirIterator>
#include <QFile>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextBrowser>
#include <QToolButton>

using namespace Qt::StringLiterals;

// Every hostile manifest, met in the real window from its arrival to the last page that shows
// something of it, and once more from the cache. No text may hold up the event loop, and nothing
// may land outside of the game directory.
class TestHostileManifests : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void initTestCase()
    {
        init();
        m_driver->openAndWait();
        m_ordinaryFiles = filesOutsideOfTheGame();
        cleanup();
    }
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->storeSession();
    }
    void cleanup() { m_driver.reset(); }
    void cleanupTestCase()
    {
        qInfo("over all: longest gap %lld ms, peak memory %lld MB", m_worstGap,
              costs::peakBytes() / (1024 * 1024));
        QVERIFY(costs::peakBytes() < maxPeakBytes);
    }

    void isHarmless_data()
    {
        QTest::addColumn<qsizetype>("index");
        for (qsizetype i = 0; i < hostile::manifestCount(); ++i)
            QTest::newRow(hostile::manifestName(i).constData()) << i;
    }

    void isHarmless()
    {
        QFETCH(qsizetype, index);
        const QByteArray body = hostile::manifest(index);
        m_driver->server().answer("/manifest.json", HttpAnswer::json(body));
        m_driver->openAndWait();
        QVERIFY2(m_driver->status().endsWith(u" versions available"),
                 qPrintable(m_driver->status().left(200)));
        verifyArrivalIsNotSlow(body);
        verifyListsAreNotSlow("online");
        verifyNoPageIsSlow("online");
        const QStringList tokens = placesOfTheToken();
        QVERIFY2(tokens.isEmpty(), qPrintable(tokens.join(u' ')));
        const QStringList strays = filesOutsideOfTheGame();
        QVERIFY2(strays.isEmpty(), qPrintable(strays.join(u' ')));

        m_driver->close();
        m_driver->server().goOffline();
        m_driver->openAndWait();
        QCOMPARE(m_driver->status(), u"Offline - using cached version list"_s);
        verifyListsAreNotSlow("cached");
    }

private:
#ifdef __SANITIZE_ADDRESS__
    static constexpr qint64 maxGapMs = 1500; // what this guards against costs tens of seconds
#else
    static constexpr qint64 maxGapMs = 200;
#endif
    static constexpr qint64 maxPeakBytes = 3LL * 1024 * 1024 * 1024;

    // Reading the JSON takes its time, which is measured alone and taken off.
    void verifyArrivalIsNotSlow(const QByteArray& body)
    {
        const double before = costs::cpuSeconds();
        QVERIFY(VersionManager().parseManifest(body));
        const auto parsing = static_cast<qint64>((costs::cpuSeconds() - before) * 1000);
        QSignalSpy ready(&m_driver->versions(), &VersionManager::manifestReady);
        Heartbeat heartbeat(1);
        m_driver->versions().refreshManifest();
        QTRY_COMPARE(ready.size(), 1);
        const qint64 gap = heartbeat.longestProcessorMs();
        if (gap > 100)
            qInfo("%s: %lld ms to take it, of which %lld parse it", QTest::currentDataTag(), gap,
                  parsing);
        QVERIFY(gap - parsing < maxGapMs);
    }

    void verifyListsAreNotSlow(const char* when)
    {
        // The lists once more, without the parsing that came before them.
        step(when, "arrival", [this] { Q_EMIT m_driver->versions().manifestReady(false); });
        step(when, "paint", [this] { m_driver->window().grab(); });
        auto* list = m_driver->find<QListWidget>("newsList");
        step(when, "hover over the list", [list] { hoverOver(list); });
    }

    void verifyNoPageIsSlow(const char* when)
    {
        auto* list = m_driver->find<QListWidget>("newsList");
        step(when, "keys on the list", [list] { QTest::keyClick(list, Qt::Key_PageDown); });
        step(when, "selector's list", [this] {
            m_driver->selector()->showPopup();
            hoverOver(m_driver->selector()->view());
        });
        step(when, "end of the selector's list", [this] {
            m_driver->selector()->view()->scrollToBottom();
            QTest::keyClick(m_driver->selector()->view(), Qt::Key_End);
        });
        m_driver->selector()->hidePopup();
        list->scrollToTop();
        step(when, "article", [this, list] { m_driver->clickRow(list, 0); });
        step(when, "end of the article", [this] {
            QScrollBar* bar = m_driver->find<QTextBrowser>("newsBody")->verticalScrollBar();
            bar->setValue(bar->maximum());
        });
        step(when, "profiles", [this] { m_driver->click(m_driver->nav("Profiles")); });
        step(when, "editor", [this] { m_driver->click("newProfileButton"); });
        step(when, "editor's versions", [this] {
            auto* combo = m_driver->find<QComboBox>("versionCombo");
            combo->showPopup();
            hoverOver(combo->view());
            combo->hidePopup();
        });
        step(when, "settings", [this] { m_driver->click(m_driver->nav("Settings")); });
        step(when, "play", [this] {
            Settings::get().setJavaPath(u"/nonexistent/java"_s);
            m_driver->play()->click();
        });
        m_driver->click(m_driver->nav("News"));
    }

    // The action, and what the event loop has to do because of it.
    void step(const char* when, const char* what, const std::function<void()>& action)
    {
        QTest::qWait(0);
        Heartbeat heartbeat(1);
        action();
        QTest::qWait(10);
        const qint64 gap = heartbeat.longestProcessorMs();
        m_worstGap = qMax(m_worstGap, gap);
        if (gap > 100)
            qInfo("%s, %s, %s: %lld ms", QTest::currentDataTag(), when, what, gap);
        QVERIFY2(gap < maxGapMs, what);
    }

    static void hoverOver(QAbstractItemView* view)
    {
        for (int y = 5; y < view->viewport()->height(); y += 20)
            QTest::mouseMove(view->viewport(), QPoint(20, y));
        QTest::qWait(1);
        view->viewport()->grab();
    }

    // Where the session's token is but in the settings, and which requests carried it but those to
    // the account server.
    QStringList placesOfTheToken()
    {
        QStringList places;
        for (const HttpRequest& request : m_driver->server().requests()) {
            if (!request.header("Authorization").isEmpty() && !request.path.startsWith("/auth/"))
                places.append(QString::fromUtf8(request.path));
        }
        QDirIterator files(throwaway_home::path(), QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            QFile file(files.next());
            if (file.fileName() != throwaway_home::settingsFile() &&
                file.open(QIODevice::ReadOnly) && file.readAll().contains("secret"))
                places.append(file.fileName());
        }
        return places;
    }

    QStringList filesOutsideOfTheGame()
    {
        QStringList strays;
        QDirIterator files(throwaway_home::path(), QDir::Files | QDir::System | QDir::Hidden,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next();
            if (!path.startsWith(Settings::get().gameDir()) && !m_ordinaryFiles.contains(path))
                strays.append(path);
        }
        return strays;
    }

    std::unique_ptr<WindowDriver> m_driver;
    QStringList m_ordinaryFiles;
    qint64 m_worstGap = 0;
};

QTEST_MAIN(TestHostileManifests)
#include "tst_hostile_manifests.moc"
