// What the idle window costs: processor time over 30 s of the launcher on its News page, banner
// moving, beside an empty window of its size. Needs a display.
#include "bench/measure.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <memory>

#include <unistd.h>

namespace {

constexpr unsigned long settleSeconds = 5;
constexpr unsigned long measuredSeconds = 30;
constexpr double aimPercent = 2;

QProcessEnvironment environmentIn(const QString& home)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR"})
        environment.insert(QString::fromLatin1(variable), home);
    return environment;
}

// Processor time of all threads so far, user and system.
double processorSeconds(qint64 processId)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(processId));
    if (!stat.open(QIODevice::ReadOnly))
        qFatal("a measured program has ended");
    // The name, in parentheses, may hold blanks; user time is the 12th field behind it.
    const QByteArray all = stat.readAll();
    const QByteArrayList fields = all.mid(all.lastIndexOf(')') + 2).split(' ');
    return (fields.at(11).toDouble() + fields.at(12).toDouble()) /
           static_cast<double>(sysconf(_SC_CLK_TCK));
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QTemporaryDir home;
    std::vector<std::unique_ptr<QProcess>> programs;
    for (const char* path : {LAUNCHER, EMPTY_WINDOW}) {
        auto program = std::make_unique<QProcess>();
        program->setProcessEnvironment(environmentIn(home.path()));
        program->start(QString::fromLocal8Bit(path), QStringList());
        if (!program->waitForStarted())
            qFatal("%s did not start", path);
        programs.push_back(std::move(program));
    }
    QThread::sleep(settleSeconds);
    std::vector<double> before(programs.size());
    std::ranges::transform(programs, before.begin(), [](const auto& program) {
        return processorSeconds(program->processId());
    });
    QThread::sleep(measuredSeconds);

    double percent[2] = {};
    for (size_t i = 0; i < programs.size(); ++i) {
        percent[i] =
            (processorSeconds(programs[i]->processId()) - before[i]) / measuredSeconds * 100;
        programs[i]->kill();
        programs[i]->waitForFinished();
    }
    measure::absolute("idle window, beside an empty one", percent[0], "% of a core", percent[1],
                      aimPercent);
    return 0;
}
