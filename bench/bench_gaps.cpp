// How long the launcher's window stops while it works: the longest time that a timer of 5 ms had to
// wait on the window's thread. Beside it, in a process of its own, an idle window with the same
// timer measures what the machine itself adds at the same moments; that is taken off. The servers
// are in a third process. Usage: bench_gaps [scenario...]; without one, all. Needs a display.
#include "bench/gap_scenarios.h"
#include "bench/gap_servers.h"
#include "bench/measure.h"
#include "tests/support/heartbeat.h"

#include <QApplication>
#include <QFile>
#include <QMainWindow>
#include <QProcess>
#include <QSocketNotifier>
#include <QTemporaryDir>

#include <cstdio>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr double aimMs = 50;
constexpr double memoryAim = 1.15;
constexpr int timeoutMs = 120'000;

// A line on its input asks for the longest gap since the line before.
int idleWindow(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QMainWindow window;
    window.resize(1080, 600);
    window.show();
    Heartbeat heartbeat(5);
    QSocketNotifier asked(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&asked, &QSocketNotifier::activated, &window, [&heartbeat] {
        char line[16];
        if (read(STDIN_FILENO, line, sizeof line) <= 0) {
            QCoreApplication::quit();
            return;
        }
        std::printf("%lld\n", heartbeat.longestMs());
        std::fflush(stdout);
        heartbeat.restart();
    });
    return QApplication::exec();
}

QByteArray nextLine(QProcess& process)
{
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(10) && process.state() == QProcess::NotRunning)
            qFatal("%s ended too early", qPrintable(process.arguments().join(u' ')));
        QCoreApplication::processEvents(); // the servers answer
    }
    return process.readLine().trimmed();
}

double longestGapOf(QProcess& idle)
{
    idle.write("?\n");
    return nextLine(idle).toDouble();
}

void start(QProcess& process, const QString& program, const QStringList& arguments,
           const QProcessEnvironment& environment)
{
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
    if (!process.waitForStarted())
        qFatal("cannot start %s", qPrintable(program));
}

// The window tells "begin" when what is measured begins, then its figures, then "end".
void run(const QString& scenario)
{
    const QTemporaryDir home;
    GapServers servers(scenario, home.path());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR"})
        environment.insert(QString::fromLatin1(variable), home.path());
    // A copy, which the update may replace.
    const QString program = home.filePath(u"launcher"_s);
    if (!QFile::copy(QCoreApplication::applicationFilePath(), program))
        qFatal("cannot write %s", qPrintable(program));

    QProcess idle;
    start(idle, QCoreApplication::applicationFilePath(), {u"--idle"_s}, environment);
    QProcess window;
    start(window, program, {u"--window"_s, scenario, servers.origin()}, environment);
    double noise = 0;
    for (QByteArray line = nextLine(window); line != "end"; line = nextLine(window)) {
        const QByteArrayList words = line.split(' ');
        if (line == "begin")
            longestGapOf(idle);
        if (words[0] == "gap") {
            noise = longestGapOf(idle);
            const QByteArray name = "gap, " + GapScenario::description(scenario).toUtf8();
            measure::excess(name.constData(), words.value(1).toDouble(), "ms", noise, aimMs);
        }
        if (words[0] == "memory")
            measure::ratio("peak memory above idle, beside the 300 MB jar",
                           words.value(1).toDouble(), "MB", words.value(2).toDouble(), memoryAim);
    }
    window.waitForFinished(timeoutMs);
    idle.closeWriteChannel();
    idle.waitForFinished(timeoutMs);
}

} // namespace

int main(int argc, char* argv[])
{
    const QByteArray mode = argc > 1 ? argv[1] : "";
    if (mode == "--idle")
        return idleWindow(argc, argv);
    if (mode == "--window" && argc > 3)
        return GapScenario::run(argc, argv, QString::fromLocal8Bit(argv[2]),
                                QString::fromLocal8Bit(argv[3]));
    const QCoreApplication application(argc, argv);
    const QStringList named = QCoreApplication::arguments().mid(1);
    for (const QString& scenario : named.isEmpty() ? GapScenario::names() : named)
        run(scenario);
    return 0;
}
