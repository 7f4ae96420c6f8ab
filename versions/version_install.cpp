#include "versions/version_manager.h"

#include "app/settings.h"
#include "services/http.h"
#include "services/sha256.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <utility>

namespace {

// The system would take what stands before a NUL for the whole path: some file of the player's, of
// the manifest's choice.
bool isUsable(const QString& path)
{
    return !path.contains(QChar::Null);
}

} // namespace

QString VersionManager::jarPath(const QString& versionId) const
{
    return QStringLiteral("%1/versions/%2/tessellan-%2.jar")
        .arg(Settings::get().gameDir(), versionId);
}

bool VersionManager::isInstalled(const QString& versionId) const
{
    const QString path = jarPath(versionId);
    return isUsable(path) && QFile::exists(path);
}

bool VersionManager::needsInstall(const GameVersion& v) const
{
    if (!isInstalled(v.id))
        return true;
    if (v.sha256.isEmpty())
        return false;
    return !Sha256::areSame(m_digests.sha256(jarPath(v.id)), v.sha256);
}

QString VersionManager::sha256Hex(const QByteArray& data)
{
    return Sha256::of(data);
}

void VersionManager::install(const GameVersion& v)
{
    http::Exchange exchange{
        .context = this,
        .maxBytes = http::maxDownloadBytes,
        .done = [this,
                 v](const http::Answer& answer) { onJarDownloaded(v, answer.error, answer.body); },
        .progress = [this](qint64 received,
                           qint64 total) { Q_EMIT downloadProgress(received, total); }};
    exchange.isWhole = v.sha256.isEmpty() ? &http::isZip : &http::isCheckedLater;
    http::get(m_network, QNetworkRequest{QUrl(v.url)}, std::move(exchange));
}

void VersionManager::onJarDownloaded(const GameVersion& v, const QString& error,
                                     const QByteArray& body)
{
    if (!error.isEmpty()) {
        Q_EMIT installFailed(error);
        return;
    }
    if (!v.sha256.isEmpty() && !Sha256::areSame(sha256Hex(body), v.sha256)) {
        Q_EMIT installFailed(QStringLiteral("Checksum mismatch — download corrupted"));
        return;
    }
    const QString path = jarPath(v.id);
    QFile jar(path);
    if (isUsable(path))
        QDir().mkpath(QFileInfo(path).absolutePath());
    if (!isUsable(path) || !jar.open(QIODevice::WriteOnly)) {
        Q_EMIT installFailed(QStringLiteral("Cannot write ") + path);
        return;
    }
    // Straight to its place and unchecked, on purpose: needsInstall finds a damaged jar at the
    // next start.
    jar.write(body);
    jar.close();
    Q_EMIT installFinished(v.id);
}
