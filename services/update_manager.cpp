#include "services/update_manager.h"

#include "app/deployment.h"
#include "app/settings.h"
#include "services/http.h"
#include "services/sha256.h"
#include "services/unless_stopped.h"
#include "services/update_download.h"
#include "services/update_staging.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QStringList>

#include <algorithm>
#include <limits>
#include <stop_token>

namespace {

// Empty when it cannot be read.
QString sha256Of(const QString& path, const std::stop_token& stop = {})
{
    QFile file(path);
    const bool open = file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    return open ? Sha256::ofFile(file.handle(), stop) : QString();
}

} // namespace

UpdateManager::UpdateManager(QObject* parent)
    : QObject(parent), m_network(new QNetworkAccessManager(this))
{
}

int UpdateManager::compareVersions(const QString& a, const QString& b)
{
    const QStringList partsOfA = a.split(u'.');
    const QStringList partsOfB = b.split(u'.');
    const qsizetype count = std::max(partsOfA.size(), partsOfB.size());
    for (qsizetype i = 0; i < count; ++i) {
        // toInt() gives 0 for what is no number, and value() an empty string for a missing part.
        const qint64 difference =
            qint64{partsOfA.value(i).toInt()} - qint64{partsOfB.value(i).toInt()};
        if (difference != 0)
            return static_cast<int>(std::clamp<qint64>(difference, std::numeric_limits<int>::min(),
                                                       std::numeric_limits<int>::max()));
    }
    return 0;
}

bool UpdateManager::qtRuntimePresent()
{
    return QDir(QCoreApplication::applicationDirPath()).exists(QStringLiteral("libQt6Core.so.6"));
}

QString UpdateManager::runningExeSha256()
{
    return sha256Of(QCoreApplication::applicationFilePath());
}

void UpdateManager::checkForUpdate()
{
    http::get(m_network, QNetworkRequest{QUrl(Settings::get().manifestUrl())},
              {.context = this,
               .maxBytes = http::maxManifestBytes,
               .done =
                   [this](const http::Answer& answer) {
                       onManifestDownloaded(answer.error, answer.body);
                   },
               .isWhole = &http::isCheckedLater}); // a manifest that was cut does not parse
}

// The manifest's launcherArchive is not looked at: a check never starts a full-archive update.
UpdateManager::Build UpdateManager::newestBuild(const QByteArray& manifest)
{
    const QJsonObject root = QJsonDocument::fromJson(manifest).object();
    const QJsonObject forLinux = root[u"launcherLinux"].toObject();
    // One or the other as a whole, never the keys of both mixed.
    const QJsonObject build =
        forLinux[u"url"].toString().isEmpty() ? root[u"launcher"].toObject() : forLinux;
    return {build[u"version"].toString(), build[u"url"].toString(), build[u"sha256"].toString()};
}

void UpdateManager::onManifestDownloaded(const QString& error, const QByteArray& manifest)
{
    if (!error.isEmpty()) {
        Q_EMIT upToDate();
        return;
    }
    m_worker.run(
        [manifest](const std::stop_token& stop) {
            return unlessStopped(stop, [manifest] { return newestBuild(manifest); })
                .value_or(Build());
        },
        [this](const Build& build) { judge(build); });
}

void UpdateManager::judge(const Build& build)
{
    const bool offered = !build.version.isEmpty() && !build.url.isEmpty();
    if (offered && compareVersions(build.version, QString(deployment::version)) > 0)
        update(build);
    else if (offered && !build.sha256.isEmpty())
        compareWithRunningExe(build);
    else
        Q_EMIT upToDate();
}

// A build that was published again under its old number, or an older one that was put back, is
// installed as well: what counts is that the running file is the one the manifest names.
void UpdateManager::compareWithRunningExe(const Build& build)
{
    m_worker.run([path = QCoreApplication::applicationFilePath()](
                     const std::stop_token& stop) { return sha256Of(path, stop); },
                 [this, build](const QString& running) {
                     if (Sha256::areSame(build.sha256, running))
                         Q_EMIT upToDate();
                     else
                         update(build);
                 });
}

void UpdateManager::update(const Build& build)
{
    Q_EMIT updateAvailable(build.version);
    download(build.url, build.sha256, build.version, false);
}

void UpdateManager::download(const QString& url, const QString& sha256, const QString& version,
                             bool fullArchive)
{
    auto* job = new UpdateDownload(this);
    connect(job, &UpdateDownload::progress, this, &UpdateManager::updateProgress);
    connect(job, &UpdateDownload::failed, this, &UpdateManager::updateFailed);
    connect(job, &UpdateDownload::unfit, this,
            [this, version](const QString& lack) { m_tellUnfit(version, lack); });
    connect(job, &UpdateDownload::ready, this, [this, version] {
        connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this,
                &UpdateStaging::makeStagedRunnable);
        Q_EMIT updateReady(version);
    });
    job->start(m_network, url, sha256, fullArchive);
}
