#include "versions/version_manager.h"

#include "app/settings.h"
#include "services/http.h"
#include "services/sha256.h"
#include "versions/jar_store.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <memory>
#include <utility>

QString VersionManager::jarPath(const QString& versionId) const
{
    return JarStore::pathBelow(Settings::get().gameDir(), versionId);
}

bool VersionManager::isInstalled(const QString& versionId) const
{
    return JarStore::exists(jarPath(versionId));
}

bool VersionManager::needsInstall(const GameVersion& v) const
{
    return m_jars->needsInstall(jarPath(v.id), v.sha256);
}

std::optional<bool> VersionManager::knownNeed(const GameVersion& v) const
{
    return m_jars->knownNeed(jarPath(v.id), v.sha256);
}

void VersionManager::whenKnown(const GameVersion& v, std::function<void(bool)> then)
{
    m_jars->whenKnown(jarPath(v.id), v.sha256, std::move(then));
}

QString VersionManager::sha256Hex(const QByteArray& data)
{
    return Sha256::of(data);
}

void VersionManager::install(const GameVersion& v)
{
    http::get(m_network, QNetworkRequest{QUrl(v.url)},
              {.context = this,
               .maxBytes = http::maxDownloadBytes,
               .done =
                   [this, v](const http::Answer& answer) {
                       if (answer.error.isEmpty())
                           writeJar(v, answer.body, answer.sha256);
                       else
                           Q_EMIT installFailed(answer.error);
                   },
               .progress = [this](qint64 received,
                                  qint64 total) { Q_EMIT downloadProgress(received, total); },
               .isWhole = v.sha256.isEmpty() ? &http::isZip : &http::isCheckedLater,
               .hashes = !v.sha256.isEmpty()});
}

void VersionManager::writeJar(const GameVersion& v, const QByteArray& body, const QString& sha256)
{
    if (!v.sha256.isEmpty() && !Sha256::areSame(sha256, v.sha256)) {
        Q_EMIT installFailed(QStringLiteral("Checksum mismatch — download corrupted"));
        return;
    }
    const QString path = jarPath(v.id);
    m_jars->write(path, body, v.sha256.isEmpty() ? QString() : sha256,
                  [this, path, id = v.id](bool opened) {
                      if (opened)
                          Q_EMIT installFinished(id);
                      else
                          Q_EMIT installFailed(QStringLiteral("Cannot write ") + path);
                  });
}
