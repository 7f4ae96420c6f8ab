#include "services/update_staging.h"

#include "services/elf_head.h"
#include "services/loader_trial.h"
#include "services/sha256.h"
#include "services/slices.h"
#include "services/staged_file.h"
#include "services/zip.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>

#include <algorithm>
#include <optional>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

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

// The executable that is being staged. When it cannot be written it is still read to its end: that
// what came is not what was announced says more than that the disk is full.
class UpdateStaging::NewExe
{
public:
    explicit NewExe(const QString& path) : m_file(path) {}

    void add(QByteArrayView bytes, const std::stop_token& stop)
    {
        m_hash.add(bytes);
        while (!bytes.isEmpty() && !stop.stop_requested()) {
            const qsizetype size = std::min(sliceBytes - m_slice.size(), bytes.size());
            m_slice.append(bytes.first(size));
            bytes = bytes.sliced(size);
            if (m_slice.size() == sliceBytes)
                writeSlice();
        }
    }

    // Nothing would start again after an empty one had been swapped in.
    Outcome finish(const QString& sha256, const std::stop_token& stop)
    {
        if (!sha256.isEmpty() && !Sha256::areSame(m_hash.result(), sha256))
            return Outcome::Differs;
        if (!m_slice.isEmpty())
            writeSlice();
        if (stop.stop_requested() || m_state != State::Sound || !m_file.keep())
            return Outcome::Failed;
        return Outcome::Kept;
    }

private:
    enum class State { Empty, Sound, Broken };

    // Waits for the disk: not for each of the small pieces that a network brings.
    void writeSlice()
    {
        if (m_state == State::Empty)
            m_state = knowsRunningExe() && m_file.create() ? State::Sound : State::Broken;
        if (m_state == State::Sound && !m_file.write(m_slice)) {
            m_file.discard();
            m_state = State::Broken;
        }
        m_slice.resize(0);
    }

    StagedFile m_file;
    QByteArray m_slice;
    Sha256 m_hash;
    State m_state = State::Empty;
};

UpdateStaging::UpdateStaging(QObject* parent)
    : QObject(parent), m_exe(std::make_shared<NewExe>(stagedPath()))
{
}

UpdateStaging::~UpdateStaging()
{
    if (m_isTrying)
        QFile::remove(stagedPath());
}

void UpdateStaging::add(const QByteArray& piece, std::function<void()> next)
{
    m_worker.run(
        [exe = m_exe, piece](const std::stop_token& stop) {
            exe->add(piece, stop);
            return true;
        },
        [next = std::move(next)](bool) { next(); });
}

void UpdateStaging::finish(const QString& sha256)
{
    m_worker.run([exe = m_exe, sha256](
                     const std::stop_token& stop) { return judged(exe->finish(sha256, stop)); },
                 [this](const Staged& staged) { report(staged); });
}

void UpdateStaging::stageZip(const QByteArray& archive)
{
    if (!knowsRunningExe()) {
        Q_EMIT failed();
        return;
    }
    m_worker.run(
        [exe = m_exe, archive](const std::stop_token& stop) {
            zip::UnpackingOver unpacking(QStringLiteral("TessellanLauncher.exe"), archive,
                                         QCoreApplication::applicationDirPath());
            auto state = unpacking.step();
            while (state == zip::UnpackingOver::State::Working && !stop.stop_requested())
                state = unpacking.step();
            if (!unpacking.kept() || state != zip::UnpackingOver::State::Done)
                return Staged();
            exe->add(*unpacking.kept(), stop);
            return judged(exe->finish({}, stop));
        },
        [this](const Staged& staged) { report(staged); });
}

// What the system looks at before it asks the loader. What is no ELF file, a script for one, is
// nothing that can be judged; nor is what another loader than the running program's would load.
UpdateStaging::Staged UpdateStaging::judged(Outcome outcome)
{
    const auto head = outcome == Outcome::Kept ? ElfHead::of(stagedPath()) : std::nullopt;
    const auto running = head ? ElfHead::of(runningExe()) : std::nullopt;
    if (!running)
        return {outcome, {}, {}};
    if (head->machine != running->machine)
        return {outcome, u"it is made for another machine"_s, {}};
    if (!head->isWhole)
        return {outcome, u"its file is cut short"_s, {}};
    const QString loader = QFile::decodeName(head->interpreter);
    if (loader.startsWith(u'/') && !QFile::exists(loader))
        return {outcome, loader + u" is missing"_s, {}};
    const bool canBeAsked = !loader.isEmpty() && head->interpreter == running->interpreter;
    return {outcome, {}, canBeAsked ? loader : QString()};
}

void UpdateStaging::report(const Staged& staged)
{
    if (staged.outcome == Outcome::Differs)
        Q_EMIT differs();
    else if (staged.outcome == Outcome::Failed)
        Q_EMIT failed();
    else if (!staged.lack.isEmpty())
        refuse(staged.lack);
    else if (!staged.loader.isEmpty())
        tryWith(staged.loader);
    else
        restart();
}

// An update brings the executable alone. One that needs other libraries than there are would be
// swapped in all the same, and nothing would start any more that could put it right.
void UpdateStaging::tryWith(const QString& loader)
{
    auto* trial = new LoaderTrial(this);
    connect(trial, &LoaderTrial::finished, this, [this, trial](const QString& lack) {
        trial->deleteLater();
        m_isTrying = false;
        if (lack.isEmpty())
            restart();
        else
            refuse(lack);
    });
    m_isTrying = true;
    trial->start(loader, stagedPath());
}

void UpdateStaging::refuse(const QString& lack)
{
    QFile::remove(stagedPath());
    Q_EMIT unfit(lack);
}

void UpdateStaging::restart()
{
    if (startScript()) {
        Q_EMIT restarting();
    } else {
        QFile::remove(stagedPath());
        Q_EMIT failed();
    }
}

void UpdateStaging::makeStagedRunnable()
{
    QFile staged(stagedPath());
    staged.setPermissions(staged.permissions() | QFile::ExeOwner);
}
