// Unpacking a Java runtime: the launcher's ZIP layer against bsdtar, taken in turns. The archive is
// the first argument, or a runtime that jlink makes for the occasion.
#include "bench/measure.h"
#include "services/zip.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

namespace {

constexpr int rounds = 9;

void run(const QString& program, const QStringList& arguments, const QString& directory)
{
    QProcess process;
    process.setWorkingDirectory(directory);
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(120'000) || process.exitCode() != 0)
        qFatal("%s failed", qPrintable(program));
}

QString makeRuntime(const QString& directory)
{
    run(QStringLiteral("jlink"),
        {QStringLiteral("--add-modules"), QStringLiteral("java.se"), QStringLiteral("--output"),
         QStringLiteral("jdk-runtime")},
        directory);
    run(QStringLiteral("bsdtar"),
        {QStringLiteral("-acf"), QStringLiteral("runtime.zip"), QStringLiteral("jdk-runtime")},
        directory);
    return directory + QStringLiteral("/runtime.zip");
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QTemporaryDir work;
    const QString archive = argc > 1 ? QFileInfo(QString::fromLocal8Bit(argv[1])).absoluteFilePath()
                                     : makeRuntime(work.path());
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int round = 0; round < rounds; ++round) {
        const QTemporaryDir here;
        ours.push_back(measure::milliseconds([&] {
            if (!zip::extract(ArchiveSource::file(archive), here.path()))
                qFatal("the archive does not unpack");
        }));
        const QTemporaryDir there;
        theirs.push_back(measure::milliseconds([&] {
            run(QStringLiteral("bsdtar"), {QStringLiteral("-xf"), archive}, there.path());
        }));
    }
    measure::ratio("unpacking the runtime, beside bsdtar", measure::median(ours), "ms",
                   measure::median(theirs), 1.1);
    return 0;
}
