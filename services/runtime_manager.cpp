#include "services/runtime_manager.h"

#include "app/deployment.h"
#include "app/settings.h"
#include "services/http.h"
#include "services/zip.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <atomic>
#include <thread>

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

// The unpacked directory that becomes the runtime. Only what this archive brought counts: a
// directory that an interrupted unpacking left behind is not a whole runtime.
QString unpackedJdk(const QDir& base, const QStringList& topLevel)
{
    const QStringList found =
        base.entryList({QStringLiteral("jdk*")}, QDir::Dirs | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QString& name : found) {
        if (topLevel.contains(name))
            return name;
    }
    return {};
}

// A link goes alone: what it leads to is somebody else's.
void removeOldRuntime(const QString& path)
{
    if (QFileInfo(path).isSymLink())
        QFile::remove(path);
    else
        QDir(path).removeRecursively();
}

// Runs on the worker; empty when the runtime stands. Paths are copies: the settings may be gone
// by now.
QString unpackRuntime(const QString& zipPath, const QString& basePath,
                      const std::atomic<bool>& cancelled)
{
    const auto topLevel = zip::extract(ArchiveSource::file(zipPath), basePath,
                                       [&cancelled] { return cancelled.load(); });
    QFile::remove(zipPath);
    if (!topLevel)
        return QStringLiteral("Could not extract Java runtime");

    QDir base(basePath);
    const QString jdk = unpackedJdk(base, *topLevel);
    if (jdk.isEmpty())
        return QStringLiteral("Runtime archive had unexpected layout");

    const auto installedName = QStringLiteral("jre-11");
    removeOldRuntime(base.filePath(installedName));
    const bool renamed = base.rename(jdk, installedName);
    if (!renamed || !QFile::exists(base.filePath(installedName + u"/bin/java")))
        return QStringLiteral("Could not finalize runtime install");
    return {};
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

void RuntimeManager::onDownloaded(const QString& error, const QByteArray& archive)
{
    if (!error.isEmpty()) {
        Q_EMIT installFailed(QStringLiteral("Runtime download failed: ") + error);
        return;
    }
    const QString base = baseDir();
    QDir().mkpath(base);
    const QString zipPath = base + u"/jre-download.zip";
    QFile file(zipPath);
    if (!file.open(QIODevice::WriteOnly)) {
        Q_EMIT installFailed(QStringLiteral("Cannot write ") + zipPath);
        return;
    }
    // A short write is caught by the extraction: a cut archive has no directory.
    file.write(archive);
    file.close();
    extract(zipPath);
}

// Nothing keeps two extractions apart, on purpose: a second click may start a second one.
void RuntimeManager::extract(const QString& zipPath)
{
    ++m_workers->running;
    std::thread([manager = this, workers = m_workers, zipPath, base = baseDir()] {
        const QString error = unpackRuntime(zipPath, base, workers->cancelled);
        // The destructor waits for `running`, so the manager is still whole here.
        if (error.isEmpty())
            Q_EMIT manager->installFinished();
        else
            Q_EMIT manager->installFailed(error);
        --workers->running;
        workers->running.notify_all();
    }).detach();
}
