#include "services/http.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace {

constexpr char limitProperty[] = "bodyLimit";
constexpr int partialContent = 206; // nobody here asks for a range

} // namespace

namespace http {

void limitBody(QNetworkReply* reply, qint64 maxBytes)
{
    const auto check = [reply, maxBytes] {
        const qint64 announced = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
        if (announced <= maxBytes && reply->bytesAvailable() <= maxBytes)
            return;
        refuseBody(reply, maxBytes);
    };
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, check);
    QObject::connect(reply, &QNetworkReply::readyRead, reply, check);
}

void refuseBody(QNetworkReply* reply, qint64 maxBytes)
{
    reply->setProperty(limitProperty, maxBytes);
    reply->abort();
}

QString errorText(const QNetworkReply* reply, qint64 bodySize)
{
    const QVariant limit = reply->property(limitProperty);
    if (limit.isValid())
        return QStringLiteral("The server sent more than %1 MB")
            .arg(limit.toLongLong() / (1024 * 1024));
    if (reply->error() != QNetworkReply::NoError)
        return reply->errorString();
    if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == partialContent)
        return QStringLiteral("The server sent only a part of the file");
    // Absent for a body without a length and for a compressed one.
    bool announced = false;
    const qint64 length =
        reply->header(QNetworkRequest::ContentLengthHeader).toLongLong(&announced);
    if (announced && length != bodySize)
        return QStringLiteral("The server closed the connection early");
    return {};
}

QString accountErrorText(const QNetworkReply* reply, const QByteArray& body)
{
    const QString error = QJsonDocument::fromJson(body).object()[u"error"].toString();
    return error.isEmpty() ? reply->errorString() : error;
}

void setBearerToken(QNetworkRequest& request, const QString& token)
{
    request.setRawHeader("Authorization", "Bearer " + token.toUtf8());
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::SameOriginRedirectPolicy);
}

} // namespace http
