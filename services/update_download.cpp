#include "services/update_download.h"

#include "services/slices.h"
#include "services/update_staging.h"

#include <QCryptographicHash>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <algorithm>
#include <memory>

namespace {

// How much may wait for a busy window: what one turn of the event loop then copies.
constexpr qint64 readAheadBytes = 4 * 1024 * 1024;
// Set aside at the announcement, so that the body does not move while it grows.
constexpr qint64 maxReservedBytes = 256 * 1024 * 1024;

} // namespace

UpdateDownload::UpdateDownload(QObject* parent) : QObject(parent) {}

void UpdateDownload::start(QNetworkAccessManager* network, const QString& url,
                           const QString& sha256, bool fullArchive, qint64 maxBytes)
{
    m_sha256 = sha256;
    m_maxBytes = maxBytes;
    m_fullArchive = fullArchive;
    QNetworkReply* reply = network->get(QNetworkRequest{QUrl(url)});
    reply->setReadBufferSize(readAheadBytes);
    http::limitBody(reply, maxBytes);
    connect(reply, &QNetworkReply::metaDataChanged, this, [this, reply] {
        const qint64 length = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
        m_body.reserve(std::clamp<qint64>(length, 0, maxReservedBytes));
    });
    connect(reply, &QNetworkReply::downloadProgress, this, &UpdateDownload::progress);
    connect(reply, &QNetworkReply::readyRead, this, [this, reply] { takeFrom(reply); });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { onFinished(reply); });
}

// As it comes: to copy all of it at the end would take too long for one turn of the event loop.
void UpdateDownload::takeFrom(QNetworkReply* reply)
{
    m_body.append(reply->readAll());
    if (m_body.size() > m_maxBytes)
        http::refuseBody(reply, m_maxBytes);
}

void UpdateDownload::onFinished(QNetworkReply* reply)
{
    reply->deleteLater();
    if (reply->bytesAvailable() > 0)
        m_body.append(reply->readAll());
    const QString error = http::errorText(reply, m_body.size());
    if (!error.isEmpty())
        fail(error);
    else if (m_sha256.isEmpty())
        stage();
    else
        check();
}

void UpdateDownload::check()
{
    auto hash = std::make_shared<QCryptographicHash>(QCryptographicHash::Sha256);
    runInSlices(this, [this, hash, done = qsizetype{0}]() mutable {
        const qsizetype size = std::min(sliceBytes, m_body.size() - done);
        hash->addData(QByteArrayView(m_body).sliced(done, size));
        done += size;
        if (done < m_body.size())
            return true;
        const QString sha256 = QString::fromLatin1(hash->result().toHex());
        if (sha256.compare(m_sha256, Qt::CaseInsensitive) == 0)
            stage();
        else
            fail(QStringLiteral("Checksum mismatch on launcher update"));
        return false;
    });
}

void UpdateDownload::stage()
{
    auto* staging = new UpdateStaging(this);
    connect(staging, &UpdateStaging::failed, this, [this] {
        fail(m_fullArchive ? QStringLiteral("Could not stage full update")
                           : QStringLiteral("Could not stage update"));
    });
    connect(staging, &UpdateStaging::restarting, this, [this] {
        Q_EMIT ready();
        deleteLater();
    });
    if (m_fullArchive)
        staging->stageZipAndRestart(m_body);
    else
        staging->stageAndRestart(m_body);
}

void UpdateDownload::fail(const QString& error)
{
    Q_EMIT failed(error);
    deleteLater();
}
