#pragma once

#include <QObject>
#include <QString>

class AccountSession;
class QNetworkAccessManager;
class QNetworkRequest;
namespace http {
struct Answer;
struct Exchange;
} // namespace http

// The launcher's client of the account server. Made and owned by the main window, shared with the
// account page; GUI thread. It keeps no token and writes no settings: whoever receives its signals
// does. Every operation returns at once and answers by exactly one signal; several may be under
// way, nothing orders them, and there are no time-outs. Nothing cancels them either, unless
// whoever uses the client lets session() end: then what belongs to it does not answer.
class AuthClient : public QObject
{
    Q_OBJECT

public:
    explicit AuthClient(QObject* parent = nullptr);

    // The session that validate and logout belong to, as do the account page's requests.
    AccountSession* session() const { return m_session; }

    // The configured server address with path appended as it stands; no slash is added or removed.
    QString endpoint(const QString& path) const;

    // Both answer with loginSucceeded or loginFailed. Name and password are sent as given.
    void login(const QString& username, const QString& password);
    void registerAccount(const QString& username, const QString& password);
    // Answers with validationResult; any failure, an outage included, reads as not valid.
    void validate(const QString& token);
    // Answers with loggedOut whatever the server says: signing out always succeeds locally.
    void logout(const QString& token);

Q_SIGNALS:
    // The name is the server's, not the one typed. Values the reply lacks are empty. Mind the
    // order: Settings::setAuth takes (token, username, uuid).
    void loginSucceeded(const QString& username, const QString& uuid, const QString& token);
    // The server's own error text, or the network layer's.
    void loginFailed(const QString& error);
    void validationResult(bool valid);
    void loggedOut();

private:
    void authRequest(const QString& path, const QString& username, const QString& password);

    http::Exchange exchange(QObject* context, void (AuthClient::*handler)(const http::Answer&));
    void onSignInAnswer(const http::Answer& answer);
    void onValidateAnswer(const http::Answer& answer);
    void onLogoutAnswer(const http::Answer& answer);

    QNetworkAccessManager* m_network;
    AccountSession* m_session;
};
