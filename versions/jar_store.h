#pragma once

#include "versions/file_digests.h"
#include "versions/game_version.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

class Worker;

// The jars of installed versions: where they are, what their digests are, and the writing of new
// ones. Large files are read and written on the worker's thread, in the order of the calls. Owned
// by VersionManager, as the worker is; GUI thread.
class JarStore
{
public:
    // What a worker read for one manifest.
    using Readings = QHash<QString, FileDigests::Reading>;

    explicit JarStore(Worker* worker);
    ~JarStore();
    Q_DISABLE_COPY_MOVE(JarStore)

    static QString pathBelow(const QString& gameDir, const QString& versionId);
    // Whether the file exists; its content is not checked.
    static bool exists(const QString& path);

    // Whether the jar is missing, or differs from the digest, if that is given. One that is being
    // written is not there yet. Reads the whole jar when its digest is not known.
    bool needsInstall(const QString& path, const QString& sha256);
    // The same without reading more than a moment allows; nothing when that is not enough.
    std::optional<bool> knownNeed(const QString& path, const QString& sha256);
    // The same as soon as it is known: at once, or from the event loop when the jar was read.
    void whenKnown(const QString& path, const QString& sha256, std::function<void(bool)> then);

    // For a worker: reads what it does not know of the jars that the versions name.
    std::function<Readings(const QList<GameVersion>&, const std::stop_token&)> reader(
        const QString& gameDir) const;
    // What it read counts from here on; what of it does not last counts during `meanwhile`.
    void take(const Readings& readings, const std::function<void()>& meanwhile);

    // Straight to its place; whether all of it could be written is not checked. `done` hears, from
    // the event loop, whether the file could be opened. A `sha256` is the body's. A write that the
    // end of the program breaks off leaves no jar.
    void write(const QString& path, const QByteArray& body, const QString& sha256,
               std::function<void(bool opened)> done);

private:
    struct Question
    {
        QString path;
        QString sha256;
        std::function<void(bool)> then;
    };

    void ask();
    void answer(const QString& path, const FileDigests::Reading& reading);

    Worker* m_worker;
    FileDigests m_digests;
    std::shared_ptr<FileDigests> m_workersDigests; // the worker's thread only
    QHash<QString, int> m_beingWritten;
    QList<Question> m_questions;
    bool m_isAsking = false; // the first of them
};
