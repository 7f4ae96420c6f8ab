// A game that prints 60,000 lines, shown by the launcher's window and by a bare QPlainTextEdit that
// keeps as many, taken in turns. Both read a real process, as it is described: whatever it printed
// at once, line after line. Needs a display.
#include "app/settings.h"
#include "bench/measure.h"
#include "tests/support/files.h"
#include "ui/main_window.h"
#include "ui/style_sheet.h"
#include "versions/version_manager.h"

#include <QApplication>
#include <QPlainTextEdit>
#include <QProcess>
#include <QStyleFactory>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

constexpr int rounds = 5;
constexpr const char* game = "yes '[12:00:00] [main/INFO]: what a game says' | head -n 60000";

void waitFor(const bool& done)
{
    while (!done)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    QCoreApplication::processEvents(); // the last lines are painted
}

void playInWindow(MainWindow& window)
{
    auto* versions = window.findChild<VersionManager*>();
    bool done = false;
    const QObject context;
    QObject::connect(versions, &VersionManager::gameExited, &context, [&done] { done = true; });
    if (!versions->launch(u"1.0"_s, nullptr, {}))
        qFatal("the game does not start");
    waitFor(done);
}

void playBare(QPlainTextEdit& console, const QString& program)
{
    bool done = false;
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    QObject::connect(&process, &QProcess::readyReadStandardOutput, &console, [&] {
        for (const QByteArray& piece : process.readAllStandardOutput().split('\n')) {
            const QString line = QString::fromLocal8Bit(piece).trimmed();
            if (!line.isEmpty())
                console.appendPlainText(line);
        }
    });
    QObject::connect(&process, &QProcess::finished, &console, [&done] { done = true; });
    process.start(program, QStringList());
    waitFor(done);
}

} // namespace

int main(int argc, char* argv[])
{
    const QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.filePath(u"config"_s).toLocal8Bit());
    qputenv("XDG_DATA_HOME", home.filePath(u"data"_s).toLocal8Bit());
    QApplication application(argc, argv);
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));

    QPlainTextEdit bare;
    bare.setReadOnly(true);
    bare.setMaximumBlockCount(5000);
    bare.resize(1080, 150); // the console's size
    bare.show();

    const QString java = home.filePath(u"game-java"_s);
    writeScript(java, game);
    Settings::get().setGameDir(home.filePath(u"game"_s));
    Settings::get().setJavaPath(java);
    Settings::get().setManifestUrl(u"http://127.0.0.1:9/"_s); // nothing listens there
    writeFile(VersionManager().jarPath(u"1.0"_s), "jar");
    MainWindow window;
    window.show();

    std::vector<double> ours;
    std::vector<double> theirs;
    for (int round = 0; round < rounds; ++round) {
        application.setStyleSheet(launcherStyleSheet());
        ours.push_back(measure::milliseconds([&] { playInWindow(window); }));
        application.setStyleSheet(QString());
        theirs.push_back(measure::milliseconds([&] { playBare(bare, java); }));
    }
    measure::ratio("60,000 lines of a game, beside a bare text widget", measure::median(ours), "ms",
                   measure::median(theirs), 1.3);
    return 0;
}
