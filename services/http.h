#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

class QNetworkReply;
class QNetworkRequest;

// What every HTTP conversation of the launcher shares. The network layer sets no limit on a body
// and reports some cut bodies as success; these functions close both gaps. GUI thread.
namespace http {

// Aborts the reply as soon as its body is, or announces to be, longer than maxBytes. Call once,
// right after sending.
void limitBody(QNetworkReply* reply, qint64 maxBytes);

// The same for one who reads the body as it comes, and so is the only one to know its length.
void refuseBody(QNetworkReply* reply, qint64 maxBytes);

// For a finished reply whose body has been read whole: empty when it arrived as announced,
// otherwise the text to show. That is the network layer's own text, but for a body over the limit
// or shorter than its announced length, which that layer has no words for.
QString errorText(const QNetworkReply* reply, qint64 bodySize);

// The account server's error text: the string `error` of a JSON object body, else the network
// layer's text.
QString accountErrorText(const QNetworkReply* reply, const QByteArray& body);

// "Authorization: Bearer <token>". Redirects are then followed within the same origin only, so
// that the token never reaches another server.
void setBearerToken(QNetworkRequest& request, const QString& token);

constexpr qint64 maxAnswerBytes = 1024 * 1024;            // an account server's JSON
constexpr qint64 maxManifestBytes = 16 * 1024 * 1024;     // parsed on the GUI thread
constexpr qint64 maxDownloadBytes = 1024LL * 1024 * 1024; // held in memory until it is checked

} // namespace http
