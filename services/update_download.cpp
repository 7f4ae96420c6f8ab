#include "services/update_download.h"

#include "services/sha256.h"
#include "services/slices.h"
#include "services/update_staging.h"

#include <QNetworkRequest>

#include <algorithm>
#include <memory>
#include <utility>

UpdateDownload::UpdateDownload(QObject* parent) : QObject(parent) {}

void UpdateDownload::start(QNetworkAccessManager* network, const QString& url,
                           const QString& sha256, bool fullArchive, qint64 maxBytes)
{
    m_sha256 = sha256;
    m_fullArchive = fullArchive;
    http::Exchange exchange{
        .context = this,
        .maxBytes = maxBytes,
        .done = [this](const http::Answer& answer) { onDownloaded(answer); },
        .progress = [this](qint64 received, qint64 total) { Q_EMIT progress(received, total); }};
    if (!sha256.isEmpty())
        exchange.isWhole = &http::isCheckedLater;
    http::get(network, QNetworkRequest{QUrl(url)}, std::move(exchange));
}

void UpdateDownload::onDownloaded(const http::Answer& answer)
{
    m_body = answer.body;
    if (!answer.error.isEmpty())
        fail(answer.error);
    else if (m_sha256.isEmpty())
        stage();
    else
        check();
}

void UpdateDownload::check()
{
    auto hash = std::make_shared<Sha256>();
    runInSlices(this, [this, hash, done = qsizetype{0}]() mutable {
        const qsizetype size = std::min(sliceBytes, m_body.size() - done);
        hash->add(QByteArrayView(m_body).sliced(done, size));
        done += size;
        if (done < m_body.size())
            return true;
        if (Sha256::areSame(hash->result(), m_sha256))
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
