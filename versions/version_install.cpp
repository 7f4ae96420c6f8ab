#include "versions/version_manager.h"

#include "app/settings.h"
#include "services/http.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <chrono>
#include <utility>

#include <sys/stat.h>

namespace {

qint64 toNs(const timespec& time)
{
    return qint64{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// The file system's clock advances in ticks of up to 10 ms: a file that changed this recently can
// change again without its stamp showing it.
bool isSettled(qint64 changedNs)
{
    using namespace std::chrono;
    const auto now = system_clock::now().time_since_epoch();
    return duration_cast<nanoseconds>(now).count() - changedNs > 20'000'000;
}

bool differs(const QString& sha256, const QString& expected)
{
    return sha256.compare(expected, Qt::CaseInsensitive) != 0;
}

} // namespace

QString VersionManager::jarPath(const QString& versionId) const
{
    return QStringLiteral("%1/versions/%2/tessellan-%2.jar")
        .arg(Settings::get().gameDir(), versionId);
}

bool VersionManager::isInstalled(const QString& versionId) const
{
    return QFile::exists(jarPath(versionId));
}

bool VersionManager::needsInstall(const GameVersion& v) const
{
    const QString path = jarPath(v.id);
    if (!QFile::exists(path))
        return true;
    if (v.sha256.isEmpty())
        return false;
    return differs(hashOfFile(path), v.sha256);
}

bool VersionManager::stampOf(int fileDescriptor, FileStamp& stamp)
{
    struct stat info = {};
    if (fstat(fileDescriptor, &info) != 0)
        return false;
    stamp = {info.st_size, toNs(info.st_mtim), toNs(info.st_ctim), info.st_ino, info.st_dev};
    return true;
}

// Empty when the file cannot be read. Every refill of the launch selector asks for every version,
// so an unchanged file is not read again.
QString VersionManager::hashOfFile(const QString& path) const
{
    QFile file(path);
    FileStamp stamp;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) || !stampOf(file.handle(), stamp))
        return {};
    const auto known = m_hashedFiles.constFind(path);
    if (known != m_hashedFiles.cend() && known->stamp == stamp)
        return known->sha256;

    const bool settled = isSettled(stamp.changedNs);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file))
        return {};
    QString sha256 = QString::fromLatin1(hash.result().toHex());
    FileStamp after;
    if (settled && stampOf(file.handle(), after) && after == stamp)
        m_hashedFiles.insert(path, {stamp, sha256});
    return sha256;
}

QString VersionManager::sha256Hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
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
    if (!v.sha256.isEmpty())
        exchange.isWhole = &http::isCheckedLater;
    http::get(m_network, QNetworkRequest{QUrl(v.url)}, std::move(exchange));
}

void VersionManager::onJarDownloaded(const GameVersion& v, const QString& error,
                                     const QByteArray& body)
{
    if (!error.isEmpty()) {
        Q_EMIT installFailed(error);
        return;
    }
    if (!v.sha256.isEmpty() && differs(sha256Hex(body), v.sha256)) {
        Q_EMIT installFailed(QStringLiteral("Checksum mismatch — download corrupted"));
        return;
    }
    const QString path = jarPath(v.id);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile jar(path);
    if (!jar.open(QIODevice::WriteOnly)) {
        Q_EMIT installFailed(QStringLiteral("Cannot write ") + path);
        return;
    }
    // Straight to its place and unchecked, on purpose: needsInstall finds a damaged jar at the
    // next start.
    jar.write(body);
    jar.close();
    Q_EMIT installFinished(v.id);
}
