#include "services/auth_client.h"

#include "app/settings.h"
#include "services/account_session.h"
#include "services/http.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

AuthClient::AuthClient(QObject* parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
    , m_session(new AccountSession(this))
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

    http::post(m_network, request, QJsonDocument(credentials).toJson(QJsonDocument::Compact),
               exchange(this, &AuthClient::onSignInAnswer));
}

void AuthClient::onSignInAnswer(const http::Answer& answer)
{
    if (!answer.error.isEmpty()) {
        Q_EMIT loginFailed(http::accountErrorText(answer));
        return;
    }
    const QJsonObject session = QJsonDocument::fromJson(answer.body).object();
    Q_EMIT loginSucceeded(session[u"username"].toString(), session[u"uuid"].toString(),
                          session[u"token"].toString());
}

void AuthClient::validate(const QString& token)
{
    QNetworkRequest request{QUrl(endpoint(QStringLiteral("/auth/validate")))};
    http::setBearerToken(request, token);
    http::get(m_network, request, exchange(m_session->context(), &AuthClient::onValidateAnswer));
}

void AuthClient::onValidateAnswer(const http::Answer& answer)
{
    Q_EMIT validationResult(answer.error.isEmpty());
}

void AuthClient::logout(const QString& token)
{
    QNetworkRequest request{QUrl(endpoint(QStringLiteral("/auth/logout")))};
    http::setBearerToken(request, token);
    // Empty on purpose, and without a content type: the token says it all.
    http::post(m_network, request, QByteArray(),
               exchange(m_session->context(), &AuthClient::onLogoutAnswer));
}

void AuthClient::onLogoutAnswer(const http::Answer& /*answer*/)
{
    Q_EMIT loggedOut();
}

http::Exchange AuthClient::exchange(QObject* context,
                                    void (AuthClient::*handler)(const http::Answer&))
{
    return {.context = context,
            .maxBytes = http::maxAnswerBytes,
            .done = [this, handler](const http::Answer& answer) { (this->*handler)(answer); },
            .isWhole = &http::isJson};
}
