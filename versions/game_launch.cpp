#include "versions/version_manager.h"

#include "app/settings.h"
#include "app/until_nul.h"
#include "services/runtime_manager.h"

#include <QDir>
#include <QProcess>
#include <QStringList>

#include <utility>

namespace {

constexpr int startTimeoutMs = 5000;

// A relative game directory is one below the launcher's own directory. Java stands in the game
// directory and would look for it below that.
QString fromHere(const QString& path)
{
    return QDir::current().absoluteFilePath(path);
}

// The launcher's own runtime stands in for an unset java path only. Any other path is used as it
// is given.
QString javaProgram()
{
    const QString configured = untilNul(Settings::get().javaPath());
    const bool unset = configured.isEmpty() || configured == u"java";
    return unset && RuntimeManager::isInstalled() ? fromHere(RuntimeManager::javaExe())
                                                  : configured;
}

// Textual on purpose, each argument by itself: "-x" goes to the JVM; "--x", and a value whatever
// option it follows, go to the game.
bool isJvmOption(const QString& arg)
{
    return arg.startsWith(u'-') && !arg.startsWith(u"--");
}

QStringList commandLine(const QString& jarPath, const QList<QString>& extraArgs)
{
    QStringList jvmOptions;
    QStringList gameOptions;
    for (const QString& given : extraArgs) {
        const QString arg = untilNul(given);
        (isJvmOption(arg) ? jvmOptions : gameOptions).append(arg);
    }
    return jvmOptions << QStringLiteral("-jar") << jarPath << gameOptions;
}

// Without those that are empty or blank.
QStringList linesIn(QByteArrayView output)
{
    QStringList lines;
    while (!output.isEmpty()) {
        const qsizetype newline = output.indexOf('\n');
        const qsizetype end = newline < 0 ? output.size() : newline;
        QString line = QString::fromLocal8Bit(output.first(end)).trimmed();
        if (!line.isEmpty())
            lines.append(std::move(line));
        output = output.sliced(qMin(end + 1, output.size()));
    }
    return lines;
}

} // namespace

bool VersionManager::launch(const QString& versionId, QString* error,
                            const QList<QString>& extraArgs)
{
    if (!isInstalled(versionId)) {
        if (error)
            *error = QStringLiteral("Version not installed");
        return false;
    }
    const QString program = javaProgram();
    const QString workingDir = Settings::get().gameDir();
    QDir().mkpath(workingDir);
    const QStringList arguments = commandLine(fromHere(jarPath(versionId)), extraArgs);

    auto* process = new QProcess(this);
    process->setWorkingDirectory(workingDir);
    process->setProcessChannelMode(QProcess::MergedChannels);
    Q_EMIT gameLog(u"> " + program + u' ' + arguments.join(u' '));
    Q_EMIT gameLog(u"  (working dir: " + workingDir + u')');

    connect(process, &QProcess::readyReadStandardOutput, this,
            [this, process] { logOutput(process); });
    connect(process, &QProcess::errorOccurred, this, [this, process](QProcess::ProcessError code) {
        // Every other error is followed by finished.
        if (code != QProcess::FailedToStart)
            return;
        Q_EMIT gameLog(u"FAILED TO START: " + process->errorString() +
                       u" — check the java path in Settings");
        process->deleteLater();
    });
    connect(process, &QProcess::finished, this,
            [this, process](int exitCode, QProcess::ExitStatus status) {
                const bool crashed = status == QProcess::CrashExit;
                Q_EMIT gameLog((crashed ? QStringLiteral("process CRASHED (code %1)")
                                        : QStringLiteral("process exited (code %1)"))
                                   .arg(exitCode));
                Q_EMIT gameExited(exitCode);
                process->deleteLater();
            });

    process->start(program, arguments, QIODevice::ReadWrite);
    if (!process->waitForStarted(startTimeoutMs)) {
        // Worded unlike the console's line, on purpose.
        if (error)
            *error = QStringLiteral("Failed to start java — check java path in settings");
        process->deleteLater();
        return false;
    }
    return true;
}

// Lines are not joined across reads: a line that arrives in two is logged as two.
void VersionManager::logOutput(QProcess* process)
{
    const QStringList lines = linesIn(process->readAllStandardOutput());
    m_linesToCome = lines.size();
    for (const QString& line : lines) {
        --m_linesToCome;
        Q_EMIT gameLog(line);
    }
}
