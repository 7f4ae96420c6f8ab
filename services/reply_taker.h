#pragma once

#include "services/http.h"

#include <QObject>

#include <memory>

class BodyHash;
class QNetworkReply;

// Takes one reply whole for an http::Exchange. Internal to http; owned by the reply, GUI thread.
class ReplyTaker : public QObject
{
    Q_OBJECT

public:
    ReplyTaker(QNetworkReply* reply, http::Exchange exchange);
    ~ReplyTaker() override;

    // The text for the failure that the network layer is about to report, in place of its own.
    void explainFailure(const QString& error) { m_explanation = error; }

private:
    void refuse(const QString& error);
    void onHead();
    void onData();
    void onSunk();
    void goOn();
    void onFinished();
    void onError();
    void finishUnlessDone();
    void onContextEnd();
    void take(qint64 most);
    bool fits(qint64 more) const;
    bool isFull() const;
    bool isAtWork() const;
    void refuseLength();
    QString errorText() const;
    void deliver(const QString& error);

    QNetworkReply* m_reply;
    http::Exchange m_exchange;
    QByteArray m_body;
    qint64 m_size = 0;         // of what was taken
    bool m_isSinking = false;  // the sink has a piece
    bool m_isFinished = false; // the network layer is, the sink perhaps not
    QString m_explanation;
    std::unique_ptr<BodyHash> m_hash; // when it is asked for
};
