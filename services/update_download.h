#pragma once

#include "services/http.h"

#include <QObject>
#include <QString>

class QNetworkAccessManager;
class UpdateStaging;

// One download of a launcher build, which is checked and staged piece by piece as it arrives, or of
// a full archive, which is held in memory until it is whole. Internal to UpdateManager, which
// describes the texts of failures. Ends in exactly one of ready and failed, then deletes itself;
// unfit comes right before failed, with the reason why the build would not start here. GUI thread.
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
    void unfit(const QString& lack);
    void failed(const QString& error);

private:
    void failMismatch();
    void failStaging();
    void fail(const QString& error);

    UpdateStaging* m_staging;
    bool m_fullArchive = false;
};
