#include "services/auth_client.h"

#include "app/settings.h"
#include "services/http.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

AuthClient::AuthClient(QObject* parent)
    : QObject(parent), m_network(new QNetworkAccessManager(this))
{
}

QString AuthClient::endpoint(const QString& path) const
{
    return Settings::get().serverUrl() + path;
}

void AuthClient::login(const QString& username, const QString& password)
{
    authRequest(QStringLiteral("/auth/login"), username, password);
}

void AuthClient::registerAccount(const QString& username, const QString& password)
{
    authRequest(QStringLiteral("/auth/register"), username, password);
}

void AuthClient::authRequest(const QString& path, const QString& username, const QString& password)
{
    QNetworkRequest request{QUrl(endpoint(path))};
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    // A redirect elsewhere would carry the password with it.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::SameOriginRedirectPolicy);
    QJsonObject credentials;
    credentials[u"username"] = username;
    credentials[u"password"] = password;

    QNetworkReply* reply =
        m_network->post(request, QJsonDocument(credentials).toJson(QJsonDocument::Compact));
    http::limitBody(reply, http::maxAnswerBytes);
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        const QByteArray body = reply->readAll();
        if (reply->error() != QNetworkReply::NoError) {
            Q_EMIT loginFailed(http::accountErrorText(reply, body));
            return;
        }
        const QJsonObject answer = QJsonDocument::fromJson(body).object();
        Q_EMIT loginSucceeded(answer[u"username"].toString(), answer[u"uuid"].toString(),
                              answer[u"token"].toString());
    });
}

void AuthClient::validate(const QString& token)
{
    QNetworkRequest request{QUrl(endpoint(QStringLiteral("/auth/validate")))};
    http::setBearerToken(request, token);
    QNetworkReply* reply = m_network->get(request);
    http::limitBody(reply, http::maxAnswerBytes);
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        Q_EMIT validationResult(reply->error() == QNetworkReply::NoError);
    });
}

void AuthClient::logout(const QString& token)
{
    QNetworkRequest request{QUrl(endpoint(QStringLiteral("/auth/logout")))};
    http::setBearerToken(request, token);
    // Empty on purpose, and without a content type: the token says it all.
    QNetworkReply* reply = m_network->post(request, QByteArray());
    http::limitBody(reply, http::maxAnswerBytes);
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        Q_EMIT loggedOut();
    });
}
