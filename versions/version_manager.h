#pragma once

#include "services/worker.h"
#include "versions/game_version.h"

#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class JarStore;
class QNetworkAccessManager;
class QProcess;

// The launcher's model of the game: fetches and caches the manifest, installs versions, launches
// the game. Owned by the main window, lives as long as it; GUI thread only, but for the parsing of
// manifests and the reading and writing of jars, which its end breaks off. Work runs asynchronously
// and answers by signals; requests are neither queued, coalesced nor cancelled, and have no
// time-outs.
class VersionManager : public QObject
{
    Q_OBJECT

public:
    explicit VersionManager(QObject* parent = nullptr);
    ~VersionManager() override;

    // In manifest order; replaced only by a document that parsed.
    const QList<GameVersion>& versions() const { return m_versions; }
    const QList<NewsItem>& news() const { return m_news; }

    // Answers with manifestReady or manifestFailed, when the listed jars that are installed were
    // read.
    void refreshManifest();
    // Until resumeReading() neither manifests nor jars are read: the window is to appear first.
    void holdReading() { m_worker.hold(); }
    void resumeReading() { m_worker.release(); }
    // Replaces both lists from one document; false, and nothing changed, when it is not a manifest.
    bool parseManifest(const QByteArray& data);
    QString manifestCachePath() const;

    QString jarPath(const QString& versionId) const;
    // Whether the jar file exists; its content is not checked.
    bool isInstalled(const QString& versionId) const;
    // Whether the jar is missing, or differs from the manifest's digest. Reads the jar when it
    // changed since the manifest arrived, and for two seconds after that; otherwise answers from
    // memory.
    bool needsInstall(const GameVersion& v) const;
    // The same without holding the window: nothing when a large jar would have to be read, or when
    // it is being written.
    std::optional<bool> knownNeed(const GameVersion& v) const;
    // The same, at once when it is known, else from the event loop.
    void whenKnown(const GameVersion& v, std::function<void(bool needsInstall)> then);
    // 64 lower-case hexadecimal characters.
    static QString sha256Hex(const QByteArray& data);
    // Downloads, checks and writes the jar, also over an installed one. Answers with
    // downloadProgress, then installFinished or installFailed.
    void install(const GameVersion& v);

    // Starts the installed version as a child process in the game directory. extraArgs are sorted
    // into JVM and game options around "-jar". Blocks for at most 5 seconds. On failure sets
    // *error (when given) to the text to show. The game's output and end arrive as gameLog and
    // gameExited; the process is killed with the manager.
    bool launch(const QString& versionId, QString* error, const QList<QString>& extraArgs);
    // For a receiver of gameLog: how many more lines the game printed at once with this one. They
    // follow before the event loop turns again.
    qsizetype linesToCome() const { return m_linesToCome; }

Q_SIGNALS:
    // The lists were replaced, from the cache file when the download gave nothing usable.
    void manifestReady(bool fromCache);
    // Neither the download nor the cache gave a manifest: the network layer's text, or
    // "Invalid manifest".
    void manifestFailed(const QString& error);
    // Bytes of a version download; total is -1 when the server sends no length.
    void downloadProgress(qint64 received, qint64 total);
    void installFinished(const QString& versionId);
    // The network layer's text, "Checksum mismatch — download corrupted", or "Cannot write <path>".
    void installFailed(const QString& error);
    // One line for the game console.
    void gameLog(const QString& line);
    void gameExited(int exitCode);

private:
    void take(Manifest manifest);
    void onManifestDownloaded(const QString& error, const QByteArray& data);
    void writeJar(const GameVersion& v, const QByteArray& body, const QString& sha256);
    void logOutput(QProcess* process);

    QNetworkAccessManager* m_network;
    QList<GameVersion> m_versions;
    QList<NewsItem> m_news;
    qsizetype m_linesToCome = 0;
    Worker m_worker; // for manifests and jars
    std::unique_ptr<JarStore> m_jars;
};
