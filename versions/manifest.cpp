#include "versions/version_manager.h"

#include "app/settings.h"
#include "services/http.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

namespace {

QList<GameVersion> versionsFrom(const QJsonArray& array)
{
    QList<GameVersion> versions;
    for (const auto& value : array) {
        const QJsonObject object = value.toObject();
        GameVersion v{object[u"id"].toString(), object[u"url"].toString(),
                      object[u"sha256"].toString(), object[u"released"].toString()};
        if (!v.id.isEmpty() && !v.url.isEmpty())
            versions.append(std::move(v));
    }
    return versions;
}

QList<NewsItem> newsFrom(const QJsonArray& array)
{
    QList<NewsItem> news;
    for (const auto& value : array) {
        const QJsonObject object = value.toObject();
        NewsItem item{object[u"title"].toString(), object[u"date"].toString(),
                      object[u"body"].toString()};
        if (!item.title.isEmpty())
            news.append(std::move(item));
    }
    return news;
}

} // namespace

VersionManager::VersionManager(QObject* parent)
    : QObject(parent), m_network(new QNetworkAccessManager(this))
{
}

QString VersionManager::manifestCachePath() const
{
    return Settings::get().gameDir() + u"/versions_manifest.json";
}

void VersionManager::refreshManifest()
{
    QNetworkRequest request{QUrl(Settings::get().manifestUrl())};
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    http::get(m_network, request,
              {.context = this,
               .maxBytes = http::maxManifestBytes,
               .done =
                   [this](const http::Answer& answer) {
                       onManifestDownloaded(answer.error, answer.body);
                   },
               .isWhole = &http::isCheckedLater}); // a manifest that was cut does not parse
}

void VersionManager::onManifestDownloaded(const QString& error, const QByteArray& data)
{
    if (error.isEmpty() && parseManifest(data)) {
        storeManifest(data);
        Q_EMIT manifestReady(false);
        return;
    }
    QFile cache(manifestCachePath());
    if (cache.open(QIODevice::ReadOnly) && parseManifest(cache.read(http::maxManifestBytes))) {
        Q_EMIT manifestReady(true);
        return;
    }
    Q_EMIT manifestFailed(error.isEmpty() ? QStringLiteral("Invalid manifest") : error);
}

// The cache is a convenience: that it could not be written is nothing to bother the player with.
void VersionManager::storeManifest(const QByteArray& data) const
{
    QDir().mkpath(Settings::get().gameDir());
    QFile cache(manifestCachePath());
    if (cache.open(QIODevice::WriteOnly))
        cache.write(data);
}

bool VersionManager::parseManifest(const QByteArray& data)
{
    const QJsonDocument document = QJsonDocument::fromJson(data);
    const QJsonValue versions = document.object()[u"versions"];
    if (!document.isObject() || !versions.isArray())
        return false;
    m_versions = versionsFrom(versions.toArray());
    m_news = newsFrom(document.object()[u"news"].toArray());
    return true;
}
