#include "app/settings.h"
#include "services/runtime_manager.h"
#include "tests/support/bulk_server.h"
#include "tests/support/files.h"
#include "tests/support/heartbeat.h"
#include "tests/support/loopback_deployment.h"
#include "tests/support/spin.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "tests/support/zip_builder.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QExposeEvent>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <QToolButton>
#include <QWindow>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// With the variable set the sizes are those that the aims are stated for.
const bool fullSize = qEnvironmentVariableIsSet("TESSELLAN_FULL_GAPS");
const int versionCount = fullSize ? 20 : 8;
constexpr qint64 mega = 1024 * 1024;
constexpr int beatMs = 5;
// Beyond the gap of the same thing done with little files, on a busy machine under sanitizers. What
// is guarded against costs half a second and more.
constexpr qint64 moreMs = 150;

// Keeps from a window that it is on the screen.
class ExposeHolder : public QObject
{
public:
    void release(QWindow* window)
    {
        window->removeEventFilter(this);
        QExposeEvent event{QRegion(0, 0, window->width(), window->height())};
        QCoreApplication::sendEvent(window, &event);
    }

protected:
    bool eventFilter(QObject* /*watched*/, QEvent* event) override
    {
        return event->type() == QEvent::Expose;
    }
};

} // namespace

// How long the window stands still while the launcher works with large files.
class TestWindowGaps : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init() { m_driver = std::make_unique<WindowDriver>(); }
    void cleanup() { m_driver.reset(); }

    void startsWithInstalledVersions()
    {
        const qint64 control = startGap(1);
        const qint64 gap = startGap(50 * mega);
        report(gap, control);
        QVERIFY(gap < control + moreMs);
    }

    void refills()
    {
        const qint64 control = refillGap(1);
        const qint64 gap = refillGap(50 * mega);
        report(gap, control);
        QVERIFY(gap < control + moreMs);
    }

    // Their times are younger than what a file system's clock can hide: no digest lasts.
    void refillsWithVersionsThatChangedWhileItRuns()
    {
        installVersions(50 * mega);
        m_driver->openAndWait();
        for (const GameVersion& version : m_driver->versions().versions())
            touch(m_driver->versions().jarPath(version.id));
        const qint64 gap = gapWhile([this] { m_driver->click(m_driver->nav("Profiles")); },
                                    [this] { return m_driver->page() == 2; });
        QVERIFY2(gap < moreMs * 2, qPrintable(QString::number(gap)));
        QCOMPARE(m_driver->selectorTexts(), texts(u"  (installed)"_s));
    }

    // Once, however often the player presses until the jar is read.
    void playsAVersionThatChangedWhileItRuns()
    {
        Settings::get().setJavaPath(u"/bin/true"_s);
        installVersions(256 * mega, 1);
        m_driver->openAndWait();
        touch(m_driver->versions().jarPath(u"1.0"_s));
        int started = 0;
        connect(&m_driver->versions(), &VersionManager::gameLog, this,
                [&started](const QString& line) { started += line.startsWith(u"> "); });
        int exited = 0;
        connect(&m_driver->versions(), &VersionManager::gameExited, this, [&exited] { ++exited; });
        const Heartbeat heartbeat(beatMs);
        play();
        const qint64 unheard = heartbeat.longestMs();
        play();
        QCOMPARE(started, 0);
        QVERIFY(spinUntil([&exited] { return exited > 0; }));
        QCOMPARE(m_driver->status(), u"Launched 1.0"_s);
        QCOMPARE(started, 1);
        QVERIFY2(unheard < moreMs, qPrintable(QString::number(unheard)));
    }

    void playsTheLastChoice()
    {
        Settings::get().setJavaPath(u"/bin/true"_s);
        installVersions(50 * mega);
        m_driver->openAndWait();
        touch(m_driver->versions().jarPath(u"1.0"_s));
        QStringList started;
        connect(&m_driver->versions(), &VersionManager::gameLog, this,
                [&started](const QString& line) {
                    if (line.startsWith(u"> "))
                        started.append(line.section(u'/', -1));
                });
        play();
        m_driver->selector()->setCurrentIndex(1);
        play();
        QVERIFY(spinUntil([this] { return m_driver->status() == u"Launched 1.1"; }));
        bool read = false;
        m_driver->versions().whenKnown(m_driver->versions().versions().first(),
                                       [&read](bool) { read = true; });
        QVERIFY(spinUntil([&read] { return read; }));
        QCOMPARE(started, QStringList{u"tessellan-1.1.jar"_s});
    }

    void marksAVersionThatChangedWhileItRuns()
    {
        installVersions(50 * mega);
        m_driver->openAndWait();
        QFile jar(m_driver->versions().jarPath(u"1.2"_s));
        QVERIFY(jar.open(QIODevice::ReadWrite) && jar.write("damage") > 0);
        jar.close();
        m_driver->click(m_driver->nav("Profiles"));
        m_driver->selector()->setCurrentIndex(3);
        QVERIFY(spinUntil(
            [this] { return m_driver->selectorTexts().value(2) == u"1.2  (update available)"; }));
        QCOMPARE(m_driver->selectorTexts().filter(u"(installed)"_s).size(), versionCount - 1);
        QCOMPARE(m_driver->selector()->currentIndex(), 3); // the choice stays the player's
    }

    void readsNothingBeforeItIsExposed()
    {
        installVersions(1);
        MainWindow window;
        bool ready = false;
        connect(window.findChild<VersionManager*>(), &VersionManager::manifestReady, this,
                [&ready] { ready = true; });
        window.show();
        const QElapsedTimer since = started();
        ExposeHolder holder;
        window.windowHandle()->installEventFilter(&holder);
        QVERIFY(spinUntil([this, &since] {
            return m_driver->server().requestCount("/manifest.json") > 1 && since.elapsed() > 400;
        }));
        if (since.hasExpired(900))
            QSKIP("too slow: after a second it does not wait any longer");
        QVERIFY(!ready);
        holder.release(window.windowHandle());
        QVERIFY(spinUntil([&ready] { return ready; }));
    }

    void installsALargeJar()
    {
        const qint64 control = installGap(4096);
        init();
        const qint64 gap = installGap(fullSize ? 300 * mega : 96 * mega);
        report(gap, control);
        QVERIFY(gap < control + moreMs);
    }

    // More than the aim's 100 MB: so much is written to the system's memory within the bound.
    void installsARuntime()
    {
        const qint64 control = runtimeGap(4096);
        init();
        const qint64 gap = runtimeGap(400 * mega);
        report(gap, control);
        QVERIFY(gap < control + moreMs);
    }

private:
    static QElapsedTimer started()
    {
        QElapsedTimer timer;
        timer.start();
        return timer;
    }

    static void report(qint64 gap, qint64 control)
    {
        qInfo("longest gap %lld ms, with little files %lld ms", gap, control);
    }

    static qint64 gapWhile(const std::function<void()>& begin, const std::function<bool()>& over)
    {
        const Heartbeat heartbeat(beatMs);
        begin();
        [&] { QVERIFY(spinUntil(over)); }();
        return heartbeat.longestMs();
    }

    // Sparse: the disk is not what is measured.
    void installVersions(qint64 bytes, int count = versionCount)
    {
        const QString sha256 = VersionManager::sha256Hex(QByteArray(bytes, '\0'));
        QList<GameVersion> versions;
        for (int i = 0; i < count; ++i) {
            const QString id = u"1.%1"_s.arg(i);
            QFile jar(VersionManager().jarPath(id));
            QDir().mkpath(QFileInfo(jar).absolutePath());
            QVERIFY(jar.open(QIODevice::WriteOnly) && jar.resize(bytes));
            versions.append({id, u"http://127.0.0.1:9/"_s, sha256, {}});
        }
        m_driver->serveManifest(versions);
    }

    QStringList texts(const QString& mark) const
    {
        QStringList texts;
        for (const GameVersion& version : m_driver->versions().versions())
            texts.append(version.id + mark);
        return texts;
    }

    static void touch(const QString& path)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite) &&
                file.setFileTime(QDateTime::currentDateTime(), QFile::FileModificationTime));
    }

    qint64 startGap(qint64 bytes)
    {
        init();
        installVersions(bytes);
        const auto isFilled = [this] { return m_driver->selector()->count() > 0; };
        const qint64 gap = gapWhile([this] { m_driver->open(); }, isFilled);
        [&] { QCOMPARE(m_driver->selectorTexts(), texts(u"  (installed)"_s)); }();
        return gap;
    }

    qint64 refillGap(qint64 bytes)
    {
        init();
        installVersions(bytes);
        m_driver->openAndWait();
        return gapWhile([this] { m_driver->click(m_driver->nav("Profiles")); },
                        [this] { return m_driver->page() == 2; });
    }

    void play() { QVERIFY(QMetaObject::invokeMethod(&m_driver->window(), "onPlayClicked")); }

    // To the end of the road: the start of the game fails fast.
    qint64 installGap(qint64 bytes)
    {
        const BulkServer server(bytes);
        const QString sha256 = VersionManager::sha256Hex(QByteArray(bytes, 'x'));
        Settings::get().setJavaPath(u"/nowhere/java"_s);
        m_driver->serveManifest({{u"big"_s, server.url(), sha256, {}}});
        m_driver->openAndWait();
        const qint64 gap = gapWhile([this] { play(); },
                                    [this] { return m_driver->status().startsWith(u"Failed to"); });
        const QString jar = m_driver->versions().jarPath(u"big"_s);
        [&] {
            QCOMPARE(m_driver->selectorTexts(), QStringList{u"big  (installed)"_s});
            QCOMPARE(QFileInfo(jar).size(), bytes);
        }();
        return gap;
    }

    void serveRuntime(const BulkServer& server)
    {
        loopback_deployment::setRuntimeOrigin(server.url().chopped(1));
        m_driver->serveManifest({{u"1.0"_s, u"http://127.0.0.1:9/"_s, {}, {}}});
    }

    qint64 runtimeGap(qint64 bytes)
    {
        ZipBuilder runtime = ZipBuilder::runtime("jdk-11", "exit 0");
        runtime.raw({.name = "jdk-11/lib/modules", .content = QByteArray(bytes, 'x'), .method = 0});
        const BulkServer server(runtime.bytes());
        serveRuntime(server);
        m_driver->openAndWait();
        const qint64 gap =
            gapWhile([this] { play(); }, [this] { return !m_driver->status().contains(u"Java"); });
        [] { QVERIFY(RuntimeManager::isInstalled()); }();
        return gap;
    }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestWindowGaps)
#include "tst_window_gaps.moc"
