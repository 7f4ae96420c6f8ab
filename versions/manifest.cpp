#include "versions/version_manager.h"

#include "app/settings.h"
#include "services/http.h"
#include "services/unless_stopped.h"
#include "versions/jar_store.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <optional>
#include <utility>

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

// Nothing when it is not a manifest.
std::optional<Manifest> manifestFrom(const QByteArray& data)
{
    const QJsonDocument document = QJsonDocument::fromJson(data);
    const QJsonValue versions = document.object()[u"versions"];
    if (!document.isObject() || !versions.isArray())
        return {};
    return Manifest{versionsFrom(versions.toArray()),
                    newsFrom(document.object()[u"news"].toArray())};
}

// To parse sixteen megabytes of short entries takes half a second, in which it cannot be stopped.
std::optional<Manifest> manifestFrom(const QByteArray& data, const std::stop_token& stop)
{
    return unlessStopped(stop, [data] { return manifestFrom(data); }).value_or(std::nullopt);
}

std::optional<Manifest> manifestIn(const QString& path, const std::stop_token& stop)
{
    QFile file(path);
    // A pipe would be waited for.
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return {};
    return manifestFrom(file.read(http::maxManifestBytes), stop);
}

// The cache is a convenience: that it could not be written is nothing to bother the player with.
void store(const QByteArray& data, const QString& path)
{
    const QFileInfo place(path);
    QDir().mkpath(place.path());
    QFile cache(path);
    if ((place.isFile() || !place.exists()) && cache.open(QIODevice::WriteOnly))
        cache.write(data);
}

struct Found
{
    std::optional<Manifest> manifest;
    bool fromCache = false;
    JarStore::Readings jars = {};
};

// The downloaded one, which is then kept, or the one that was kept before.
Found find(const std::optional<QByteArray>& downloaded, const QString& cache,
           const std::stop_token& stop)
{
    Found found;
    if (downloaded)
        found.manifest = manifestFrom(*downloaded, stop);
    if (stop.stop_requested())
        return {};
    if (!found.manifest)
        return {.manifest = manifestIn(cache, stop), .fromCache = true};
    if (downloaded)
        store(*downloaded, cache);
    return found;
}

} // namespace

VersionManager::VersionManager(QObject* parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
    , m_jars(std::make_unique<JarStore>(&m_worker))
{
}

VersionManager::~VersionManager() = default;

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

// To read a gigabyte of jars takes half a second, or much longer when the disk has to turn for it.
// Whoever hears of the manifest asks which of its versions are up to date: that is known then.
void VersionManager::onManifestDownloaded(const QString& error, const QByteArray& data)
{
    const auto downloaded = error.isEmpty() ? std::optional(data) : std::nullopt;
    m_worker.run(
        [downloaded, cache = manifestCachePath(),
         readJars = m_jars->reader(Settings::get().gameDir())](const std::stop_token& stop) {
            Found found = find(downloaded, cache, stop);
            if (found.manifest)
                found.jars = readJars(found.manifest->versions, stop);
            return found;
        },
        [this, error](Found found) {
            if (!found.manifest) {
                Q_EMIT manifestFailed(error.isEmpty() ? QStringLiteral("Invalid manifest") : error);
                return;
            }
            take(std::move(*found.manifest));
            m_jars->take(found.jars, [&] { Q_EMIT manifestReady(found.fromCache); });
        });
}

void VersionManager::take(Manifest manifest)
{
    m_versions = std::move(manifest.versions);
    m_news = std::move(manifest.news);
}

bool VersionManager::parseManifest(const QByteArray& data)
{
    std::optional<Manifest> manifest = manifestFrom(data);
    if (manifest)
        take(std::move(*manifest));
    return manifest.has_value();
}
