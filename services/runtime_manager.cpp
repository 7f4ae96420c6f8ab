#include "services/runtime_manager.h"

#include "app/deployment.h"
#include "app/settings.h"
#include "services/http.h"
#include "services/runtime_archive.h"
#include "services/runtime_unpacking.h"

#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

// Outlives the manager for as long as a worker looks at it.
struct RuntimeManager::Workers
{
    std::atomic<bool> cancelled = false;
    std::atomic<int> running = 0;
};

namespace {

QString baseDir()
{
    return Settings::get().gameDir() + u"/runtime";
}

// The worker's part. Returns the text to show; empty when the runtime stands.
QString installFrom(QByteArray body, const QString& zipPath, const QString& base,
                    const std::function<bool()>& cancelled)
{
    QDir().mkpath(base);
    RuntimeArchive archive(zipPath);
    if (!archive.write(body, cancelled))
        return QStringLiteral("Cannot write ") + zipPath;
    body.clear();
    return unpackRuntime(archive, base, cancelled);
}

} // namespace

RuntimeManager::RuntimeManager(QObject* parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
    , m_workers(std::make_shared<Workers>())
{
}

RuntimeManager::~RuntimeManager()
{
    m_workers->cancelled = true;
    for (int running = m_workers->running; running > 0; running = m_workers->running)
        m_workers->running.wait(running);
}

QString RuntimeManager::runtimeDir()
{
    return baseDir() + u"/jre-11";
}

QString RuntimeManager::javaExe()
{
    return runtimeDir() + u"/bin/java";
}

bool RuntimeManager::isInstalled()
{
    return QFile::exists(javaExe());
}

void RuntimeManager::install()
{
    const QString address =
        deployment::runtimeOrigin + u"/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse";
    QNetworkRequest request{QUrl(address)};
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    http::get(
        m_network, request,
        {.context = this,
         .maxBytes = http::maxDownloadBytes,
         .done = [this](const http::Answer& answer) { onDownloaded(answer.error, answer.body); },
         .progress = [this](qint64 received,
                            qint64 total) { Q_EMIT downloadProgress(received, total); },
         .isWhole = &http::isCheckedLater}); // an archive that was cut has no directory
}

void RuntimeManager::onDownloaded(const QString& error, const QByteArray& body)
{
    if (error.isEmpty())
        extract(baseDir() + u"/jre-download.zip", body);
    else
        Q_EMIT installFailed(QStringLiteral("Runtime download failed: ") + error);
}

// A second click may start a second one: on their threads they take turns.
void RuntimeManager::extract(const QString& zipPath, QByteArray body)
{
    ++m_workers->running;
    std::thread([manager = this, workers = m_workers, base = baseDir(), zipPath,
                 body = std::move(body)]() mutable {
        // Paths are copies: the settings may be gone by now.
        const QString error = installFrom(std::move(body), zipPath, base,
                                          [&workers] { return workers->cancelled.load(); });
        // The destructor waits for `running`, so the manager is still whole here.
        if (error.isEmpty())
            Q_EMIT manager->installFinished();
        else
            Q_EMIT manager->installFailed(error);
        --workers->running;
        workers->running.notify_all();
    }).detach();
}
