#include "versions/jar_store.h"

#include "services/sha256.h"
#include "services/slices.h"
#include "services/worker.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <utility>

namespace {

using Reading = FileDigests::Reading;

// The system would take what stands before a NUL for the whole path: some file of the player's, of
// the manifest's choice.
bool isUsable(const QString& path)
{
    return !path.contains(QChar::Null);
}

struct Written
{
    bool opened = false;
    Reading reading;
};

bool writeSlices(QFile& jar, QByteArrayView body, const std::stop_token& stop)
{
    while (!body.isEmpty() && !stop.stop_requested()) {
        const QByteArrayView slice = body.first(std::min(sliceBytes, body.size()));
        if (jar.write(slice.data(), slice.size()) != slice.size())
            return false;
        body = body.sliced(slice.size());
    }
    return body.isEmpty();
}

// Straight to its place and unchecked, on purpose: needsInstall finds a damaged jar at the next
// start. But half a jar whose launcher has ended would pass for a whole one where the manifest has
// no digest.
Written writeJar(const QString& path, const QByteArray& body, const QString& sha256,
                 const std::stop_token& stop)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile jar(path);
    if (stop.stop_requested() || !jar.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return {};
    Written written{.opened = true, .reading = {}};
    if (writeSlices(jar, body, stop))
        written.reading = {sha256, FileStamp::of(jar.handle()), false};
    jar.close();
    if (stop.stop_requested() && !written.reading.stamp)
        jar.remove();
    if (written.reading.stamp)
        written.reading.isLasting = written.reading.stamp->settle();
    return written;
}

} // namespace

JarStore::JarStore(Worker* worker)
    : m_worker(worker), m_workersDigests(std::make_shared<FileDigests>())
{
}

JarStore::~JarStore() = default;

QString JarStore::pathBelow(const QString& gameDir, const QString& versionId)
{
    return QStringLiteral("%1/versions/%2/tessellan-%2.jar").arg(gameDir, versionId);
}

bool JarStore::exists(const QString& path)
{
    return isUsable(path) && QFile::exists(path);
}

bool JarStore::needsInstall(const QString& path, const QString& sha256)
{
    if (!exists(path) || m_beingWritten.contains(path))
        return true;
    if (sha256.isEmpty())
        return false;
    return !Sha256::areSame(m_digests.read(path).sha256, sha256);
}

std::optional<bool> JarStore::knownNeed(const QString& path, const QString& sha256)
{
    if (m_beingWritten.contains(path))
        return {};
    if (!exists(path))
        return true;
    if (sha256.isEmpty())
        return false;
    const std::optional<QString> found = m_digests.find(path);
    return found ? std::optional(!Sha256::areSame(*found, sha256)) : std::nullopt;
}

void JarStore::whenKnown(const QString& path, const QString& sha256, std::function<void(bool)> then)
{
    if (const auto needs = knownNeed(path, sha256)) {
        then(*needs);
        return;
    }
    m_questions.append({path, sha256, std::move(then)});
    ask();
}

// A jar that is being written is read after that: the worker does one after the other.
void JarStore::ask()
{
    if (m_isAsking || m_questions.isEmpty())
        return;
    m_isAsking = true;
    const QString path = m_questions.first().path;
    m_worker->run([path, digests = m_workersDigests](
                      const std::stop_token& stop) { return digests->read(path, stop); },
                  [this, path](const Reading& reading) { answer(path, reading); });
}

// Everybody who asked about this file: one that never stops changing is not read for ever.
void JarStore::answer(const QString& path, const Reading& reading)
{
    QList<Question> answered;
    QList<Question> others;
    for (Question& question : m_questions)
        (question.path == path ? answered : others).append(std::move(question));
    m_questions = std::move(others);
    m_isAsking = false;
    take({{path, reading}}, [&] {
        for (const Question& question : std::as_const(answered))
            question.then(!exists(path) || (!question.sha256.isEmpty() &&
                                            !Sha256::areSame(reading.sha256, question.sha256)));
    });
    ask();
}

std::function<JarStore::Readings(const QList<GameVersion>&, const std::stop_token&)> JarStore::
    reader(const QString& gameDir) const
{
    return [gameDir, digests = m_workersDigests](const QList<GameVersion>& versions,
                                                 const std::stop_token& stop) {
        Readings readings;
        for (const GameVersion& version : versions) {
            const QString path = pathBelow(gameDir, version.id);
            if (stop.stop_requested())
                break;
            if (!version.sha256.isEmpty() && !readings.contains(path) && exists(path))
                readings.insert(path, digests->read(path, stop));
        }
        return readings;
    };
}

void JarStore::take(const Readings& readings, const std::function<void()>& meanwhile)
{
    for (auto reading = readings.cbegin(); reading != readings.cend(); ++reading)
        m_digests.insert(reading.key(), *reading);
    meanwhile();
    m_digests.forgetFleeting();
}

void JarStore::write(const QString& path, const QByteArray& body, const QString& sha256,
                     std::function<void(bool opened)> done)
{
    if (!isUsable(path)) {
        done(false);
        return;
    }
    ++m_beingWritten[path];
    m_worker->run(
        [path, body, sha256, digests = m_workersDigests](const std::stop_token& stop) {
            Written written = writeJar(path, body, sha256, stop);
            if (written.reading.isLasting)
                digests->insert(path, written.reading);
            return written;
        },
        [this, path, done = std::move(done)](const Written& written) {
            if (--m_beingWritten[path] == 0)
                m_beingWritten.remove(path);
            take({{path, written.reading}}, [&] { done(written.opened); });
        });
}
