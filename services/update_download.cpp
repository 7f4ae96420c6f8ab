#include "services/update_download.h"

#include "services/sha256.h"
#include "services/update_staging.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <utility>

UpdateDownload::UpdateDownload(QObject* parent)
    : QObject(parent), m_staging(new UpdateStaging(this))
{
    connect(m_staging, &UpdateStaging::failed, this, &UpdateDownload::failStaging);
    connect(m_staging, &UpdateStaging::unfit, this, [this](const QString& lack) {
        Q_EMIT unfit(lack);
        failStaging();
    });
    connect(m_staging, &UpdateStaging::differs, this, &UpdateDownload::failMismatch);
    connect(m_staging, &UpdateStaging::restarting, this, [this] {
        Q_EMIT ready();
        deleteLater();
    });
}

void UpdateDownload::start(QNetworkAccessManager* network, const QString& url,
                           const QString& sha256, bool fullArchive, qint64 maxBytes)
{
    m_fullArchive = fullArchive;
    http::Exchange exchange{
        .context = this,
        .maxBytes = maxBytes,
        .done =
            [this, sha256](const http::Answer& answer) {
                if (!answer.error.isEmpty())
                    fail(answer.error);
                else if (!m_fullArchive)
                    m_staging->finish(sha256);
                else if (sha256.isEmpty() || Sha256::areSame(answer.sha256, sha256))
                    m_staging->stageZip(answer.body);
                else
                    failMismatch();
            },
        .progress = [this](qint64 received, qint64 total) { Q_EMIT progress(received, total); }};
    if (!sha256.isEmpty())
        exchange.isWhole = &http::isCheckedLater;
    if (fullArchive)
        exchange.hashes = !sha256.isEmpty();
    else
        exchange.sink = [this](const QByteArray& piece, std::function<void()> next) {
            m_staging->add(piece, std::move(next));
        };
    http::get(network, QNetworkRequest{QUrl(url)}, std::move(exchange));
}

void UpdateDownload::failMismatch()
{
    fail(QStringLiteral("Checksum mismatch on launcher update"));
}

void UpdateDownload::failStaging()
{
    fail(m_fullArchive ? QStringLiteral("Could not stage full update")
                       : QStringLiteral("Could not stage update"));
}

void UpdateDownload::fail(const QString& error)
{
    Q_EMIT failed(error);
    deleteLater();
}
