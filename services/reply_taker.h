#pragma once

#include "services/http.h"

#include <QObject>

class QNetworkReply;

// Takes one reply whole for an http::Exchange. Internal to http; owned by the reply, GUI thread.
class ReplyTaker : public QObject
{
    Q_OBJECT

public:
    ReplyTaker(QNetworkReply* reply, http::Exchange exchange);

    // The text for the failure that the network layer is about to report, in place of its own.
    void explainFailure(const QString& error) { m_explanation = error; }

private:
    void refuse(const QString& error);
    void onHead();
    void onData();
    void onFinished();
    void onError();
    void finishFailed();
    void onContextEnd();
    bool fits(qint64 more) const;
    void refuseLength();
    QString errorText() const;
    void deliver(const QString& error);

    QNetworkReply* m_reply;
    http::Exchange m_exchange;
    QByteArray m_body;
    QString m_explanation;
};
