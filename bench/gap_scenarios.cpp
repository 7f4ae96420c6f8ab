#include "bench/gap_scenarios.h"

#include "app/settings.h"
#include "bench/gap_servers.h"
#include "preview/open_gl.h"
#include "services/update_manager.h"
#include "tests/support/heartbeat.h"
#include "tests/support/loopback_deployment.h"
#include "ui/main_window.h"
#include "ui/style_sheet.h"
#include "versions/version_manager.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPushButton>
#include <QStyleFactory>
#include <QSurfaceFormat>
#include <QTimer>
#include <QToolButton>
#include <QWindow>

#include <cstdio>
#include <functional>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int settleMs = 300;
constexpr int timeoutMs = 100'000;

struct Scenario
{
    QString name;
    QString description;
};

const QList<Scenario>& scenarios()
{
    static const QList<Scenario> all{
        {u"start"_s, u"start with 20 installed jars of 50 MB"_s},
        {u"refill"_s, u"first refill with 20 installed jars of 50 MB"_s},
        {u"jar"_s, u"300 MB jar from PLAY to the game's end"_s},
        {u"runtime"_s, u"100 MB Java runtime from PLAY to the game's end"_s},
        {u"update"_s, u"60 MB update of the launcher"_s},
        {u"manifest"_s, u"2,000 versions and 500 news on every page"_s},
        {u"output"_s, u"a game that prints 30 MB"_s}};
    return all;
}

qint64 fromStatus(const char* field)
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(qstrlen(field)).trimmed().split(' ').first().toLongLong() * 1024;
    }
    return 0;
}

void forgetPeakMemory()
{
    QFile clear(u"/proc/self/clear_refs"_s);
    if (clear.open(QIODevice::WriteOnly))
        clear.write("5");
}

class Run
{
public:
    explicit Run(const QString& origin) : m_origin(origin)
    {
        Settings& settings = Settings::get();
        settings.setGameDir(QDir::homePath() + u"/game");
        settings.setManifestUrl(origin + u"/manifest.json");
        settings.setServerUrl(origin);
        settings.setJavaPath(QDir::homePath() + u"/game-java");
        settings.setAuth(u"token"_s, u"Ada"_s, u"uuid"_s);
    }

    void open()
    {
        m_window = std::make_unique<MainWindow>();
        m_versions = m_window->findChild<VersionManager*>();
        m_window->show();
    }

    void begin()
    {
        std::puts("begin");
        std::fflush(stdout);
        m_heartbeat.restart();
    }
    void end()
    {
        std::printf("gap %lld\n", m_heartbeat.longestMs());
        std::fflush(stdout);
    }

    void until(const std::function<bool()>& done)
    {
        QElapsedTimer clock;
        clock.start();
        while (!done()) {
            if (clock.elapsed() > timeoutMs)
                qFatal("what was waited for did not come");
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        }
    }
    void settle()
    {
        QElapsedTimer clock;
        clock.start();
        until([&clock] { return clock.elapsed() > settleMs; });
    }

    // Until the signal has come, after whatever the action does.
    template <typename Object, typename Signal>
    void untilSignal(Object* object, Signal signal, const std::function<void()>& action)
    {
        bool came = false;
        const auto connection =
            QObject::connect(object, signal, m_window.get(), [&came] { came = true; });
        action();
        until([&came] { return came; });
        QObject::disconnect(connection);
    }
    void refresh()
    {
        untilSignal(m_versions, &VersionManager::manifestReady,
                    [this] { m_versions->refreshManifest(); });
    }
    void play()
    {
        untilSignal(m_versions, &VersionManager::gameExited,
                    [this] { find<QPushButton>(u"playButton"_s)->click(); });
    }
    template <typename T>
    T* find(const QString& name)
    {
        return m_window->findChild<T*>(name);
    }
    void show(const QString& page)
    {
        for (auto* button : m_window->findChildren<QToolButton*>(u"navButton"_s)) {
            if (button->text() == page)
                button->click();
        }
        settle();
    }
    bool isFilled() { return find<QComboBox>(u"launchSelector"_s)->count() > 0; }

    void start();
    void refill();
    void game(bool memory);
    void runtime();
    void update();
    void manifest();

private:
    QString m_origin;
    std::unique_ptr<MainWindow> m_window;
    VersionManager* m_versions = nullptr;
    Heartbeat m_heartbeat{5};
};

void Run::start()
{
    open();
    until([this] { return m_window->windowHandle()->isExposed(); });
    begin();
    until([this] { return isFilled(); });
    settle();
    end();
}

void Run::refill()
{
    Settings::get().setManifestUrl(m_origin + u"/empty.json");
    open();
    settle();
    Settings::get().setManifestUrl(m_origin + u"/manifest.json");
    begin();
    refresh();
    settle();
    show(u"Profiles"_s);
    end();
}

void Run::game(bool memory)
{
    open();
    until([this] { return isFilled(); });
    settle();
    forgetPeakMemory();
    const auto idle = static_cast<double>(fromStatus("VmRSS:"));
    begin();
    play();
    settle();
    end();
    if (memory)
        std::printf("memory %.1f %.1f\n",
                    (static_cast<double>(fromStatus("VmHWM:")) - idle) / 1024 / 1024,
                    static_cast<double>(GapServers::jarBytes) / 1024 / 1024);
}

void Run::runtime()
{
    loopback_deployment::setRuntimeOrigin(m_origin);
    Settings::get().setJavaPath(QString());
    game(false);
}

void Run::update()
{
    Settings::get().setManifestUrl(m_origin + u"/empty.json");
    open();
    settle();
    Settings::get().setManifestUrl(m_origin + u"/update.json");
    begin();
    auto* updates = m_window->findChild<UpdateManager*>();
    untilSignal(updates, &UpdateManager::updateReady, [updates] { updates->checkForUpdate(); });
    settle();
    end();
}

void Run::manifest()
{
    open();
    until([this] { return isFilled(); });
    settle();
    begin();
    refresh();
    settle();
    auto* selector = find<QComboBox>(u"launchSelector"_s);
    for (QComboBox* combo : {selector, find<QComboBox>(u"versionCombo"_s)}) {
        if (combo != selector) {
            show(u"Profiles"_s);
            find<QPushButton>(u"newProfileButton"_s)->click();
            settle();
        }
        combo->showPopup();
        settle();
        combo->hidePopup();
        settle();
    }
    find<QPushButton>(u"editorCancelButton"_s)->click();
    show(u"News"_s);
    show(u"Settings"_s);
    find<QPushButton>(u"settingsSaveButton"_s)->click();
    settle();
    end();
}

} // namespace

QStringList GapScenario::names()
{
    QStringList names;
    for (const Scenario& scenario : scenarios())
        names.append(scenario.name);
    return names;
}

QString GapScenario::description(const QString& name)
{
    for (const Scenario& scenario : scenarios()) {
        if (scenario.name == name)
            return scenario.description;
    }
    qFatal("no scenario is called %s", qPrintable(name));
}

int GapScenario::run(int argc, char* argv[], const QString& name, const QString& origin)
{
    QSurfaceFormat::setDefaultFormat(open_gl::format());
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(u"Tessellan Launcher"_s);
    QCoreApplication::setOrganizationName(u"Tessellan"_s);
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));
    application.setStyleSheet(launcherStyleSheet());
    Run run(origin);
    if (name == u"start")
        run.start();
    else if (name == u"refill")
        run.refill();
    else if (name == u"runtime")
        run.runtime();
    else if (name == u"update")
        run.update();
    else if (name == u"manifest")
        run.manifest();
    else
        run.game(name == u"jar");
    std::puts("end");
    std::fflush(stdout);
    _exit(0); // an update waits for this and finds nothing to start
}
