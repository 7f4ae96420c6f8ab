#pragma once

#include "services/http.h"

#include <QByteArray>
#include <QObject>
#include <QString>

class QNetworkAccessManager;

// One download of a launcher build, or of a full archive: fetched into memory, checked, staged.
// Internal to UpdateManager, which describes the texts of failures. Ends in exactly one of ready
// and failed, then deletes itself. GUI thread; hashes and writes in slices.
class UpdateDownload : public QObject
{
    Q_OBJECT

public:
    explicit UpdateDownload(QObject* parent);

    // Without a digest the body is not checked. Call once.
    void start(QNetworkAccessManager* network, const QString& url, const QString& sha256,
               bool fullArchive, qint64 maxBytes = http::maxDownloadBytes);

Q_SIGNALS:
    void progress(qint64 received, qint64 total);
    void ready();
    void failed(const QString& error);

private:
    void onDownloaded(const http::Answer& answer);
    void check();
    void stage();
    void fail(const QString& error);

    QByteArray m_body;
    QString m_sha256;
    bool m_fullArchive = false;
};
