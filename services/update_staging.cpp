#include "services/update_staging.h"

#include "services/slices.h"
#include "services/staged_file.h"
#include "services/zip.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>

#include <algorithm>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// How long a turn of the event loop unpacks: half of what a picture of the banner may take.
constexpr qint64 unpackingMs = 8;

// The paths are not escaped: one that holds a single quote breaks the script before it has moved
// anything.
constexpr QStringView scriptTemplate = u"#!/bin/sh\n"
                                       "while kill -0 %1 2>/dev/null; do sleep 0.5; done\n"
                                       "mv '%2' '%3' || exit 1\n"
                                       "chmod +x '%3'\n"
                                       "'%3' &\n"
                                       "rm -f \"$0\"\n";

QString runningExe()
{
    return QDir::toNativeSeparators(QCoreApplication::applicationFilePath());
}

// Qt has no name, or one that is none, for a launcher whose path is not valid UTF-8. What would be
// staged then is not beside it, but wherever the process happens to stand.
bool knowsRunningExe()
{
    return QFileInfo(runningExe()).isFile();
}

QString stagedPath()
{
    return runningExe() + u".new";
}

QString scriptPath()
{
    return QDir(QDir::tempPath()).filePath(QStringLiteral("tessellan_launcher_update.sh"));
}

// Everyone may write to the temporary directory and knows the script's name. What stands there is
// removed only if it is a plain file of this user's own.
bool removeOldScript(const QString& path)
{
    struct stat old = {};
    if (lstat(QFile::encodeName(path).constData(), &old) != 0)
        return true;
    return S_ISREG(old.st_mode) && old.st_uid == geteuid() && QFile::remove(path);
}

bool writeScript(const QString& path, const QByteArray& text)
{
    if (!removeOldScript(path))
        return false;
    QFile script(path);
    // NewOnly fails at a file or link that somebody put there meanwhile.
    if (!script.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Text |
                         QIODevice::Unbuffered,
                     QFile::ReadOwner | QFile::WriteOwner))
        return false;
    bool written = script.write(text) == text.size();
    script.close();
    written = written && script.error() == QFile::NoError &&
              script.setPermissions(script.permissions() | QFile::ExeOwner | QFile::ExeUser);
    if (!written)
        script.remove();
    return written;
}

bool startScript()
{
    // Without a temporary directory the name alone would be a file in the working directory.
    if (QDir::tempPath().isEmpty())
        return false;
    const QString script = scriptPath();
    const QString text = scriptTemplate.toString()
                             .arg(QCoreApplication::applicationPid())
                             .arg(stagedPath(), runningExe());
    if (!writeScript(script, text.toLocal8Bit()))
        return false;
    if (QProcess::startDetached(QStringLiteral("/bin/sh"), {script}))
        return true;
    QFile::remove(script);
    return false;
}

} // namespace

UpdateStaging::UpdateStaging(QObject* parent) : QObject(parent) {}

UpdateStaging::~UpdateStaging() = default;

void UpdateStaging::stageAndRestart(const QByteArray& exe)
{
    m_staged = std::make_unique<StagedFile>(stagedPath());
    // Nothing would start again after an empty one had been swapped in.
    if (exe.isEmpty() || !knowsRunningExe() || !m_staged->create()) {
        Q_EMIT failed();
        return;
    }
    runInSlices(this, [this, exe, done = qsizetype{0}]() mutable {
        const qsizetype size = std::min(sliceBytes, exe.size() - done);
        if (!m_staged->write(QByteArrayView(exe).sliced(done, size))) {
            m_staged->discard();
            Q_EMIT failed();
            return false;
        }
        done += size;
        if (done < exe.size())
            return true;
        swapAndRestart();
        return false;
    });
}

void UpdateStaging::stageZipAndRestart(const QByteArray& archive)
{
    if (!knowsRunningExe()) {
        Q_EMIT failed();
        return;
    }
    m_unpacking = std::make_unique<zip::UnpackingOver>(
        QStringLiteral("TessellanLauncher.exe"), archive, QCoreApplication::applicationDirPath());
    runInSlices(this, [this] { return unpackSome(); });
}

bool UpdateStaging::unpackSome()
{
    QElapsedTimer timer;
    timer.start();
    auto state = m_unpacking->step();
    while (state == zip::UnpackingOver::State::Working && !timer.hasExpired(unpackingMs))
        state = m_unpacking->step();
    if (state == zip::UnpackingOver::State::Working)
        return true;
    const auto exe = m_unpacking->kept();
    m_unpacking.reset();
    if (exe)
        stageAndRestart(*exe);
    else
        Q_EMIT failed();
    return false;
}

void UpdateStaging::swapAndRestart()
{
    if (!m_staged->keep()) {
        Q_EMIT failed();
        return;
    }
    if (!startScript()) {
        QFile::remove(stagedPath());
        Q_EMIT failed();
        return;
    }
    Q_EMIT restarting();
}
