// Time from exec to the first exposed window: the launcher against an empty QMainWindow of its
// size, and against one with its style sheet and a label, taken in turns. Needs a display.
#include "bench/measure.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>

namespace {

constexpr int rounds = 15;

QProcessEnvironment probedEnvironment(const QString& home)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_PLUGIN_PATH"), QStringLiteral(PLUGINS));
    environment.insert(QStringLiteral("QT_QPA_GENERIC_PLUGINS"), QStringLiteral("exposeprobe"));
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home);
    return environment;
}

double exposeMs(const QString& program, const QProcessEnvironment& environment)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const auto start = std::chrono::steady_clock::now().time_since_epoch();
    process.start(program, QStringList());
    if (!process.waitForFinished(30'000) || process.exitCode() != 0)
        qFatal("%s did not show a window", qPrintable(program));
    const double exposed = process.readAllStandardOutput().trimmed().toDouble();
    return exposed - std::chrono::duration<double, std::milli>(start).count();
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QTemporaryDir home;
    const QProcessEnvironment environment = probedEnvironment(home.path());
    std::vector<double> launcher;
    std::vector<double> empty;
    std::vector<double> styled;
    for (int round = 0; round < rounds; ++round) {
        launcher.push_back(exposeMs(QStringLiteral(LAUNCHER), environment));
        empty.push_back(exposeMs(QStringLiteral(EMPTY_WINDOW), environment));
        styled.push_back(exposeMs(QStringLiteral(STYLED_WINDOW), environment));
    }
    measure::ratio("exec to first exposed window, beside an empty one", measure::median(launcher),
                   "ms", measure::median(empty), 1.5);
    measure::ratio("exec to first exposed window, beside a styled one with a label",
                   measure::median(launcher), "ms", measure::median(styled), 1.3);
    return 0;
}
