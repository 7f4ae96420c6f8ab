#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <functional>
#include <memory>

class QNetworkAccessManager;
class QNetworkRequest;
class QObject;
class UploadBody;

// The one way to the network: every request of the launcher is sent by get and post, and every
// answer is taken whole by them. The network layer sets no limit on a body and reports some cut
// bodies as success; what can be known of that is known here. GUI thread.
namespace http {

struct Answer
{
    QByteArray body;       // as far as it came
    QString error;         // empty: a success, and whole. Otherwise the text to show
    bool notFound = false; // the error is a 404
    QString sha256 = {};   // of a success, if it was asked for
};

// What is done with the answer to one request.
struct Exchange
{
    // Whose end aborts the request and drops its answer.
    QObject* context;
    // A longer body is refused as soon as it is, or announces to be.
    qint64 maxBytes;
    // Called once, from the event loop, when everything is over. May destroy the context.
    std::function<void(const Answer&)> done;
    // Each step of the download as the network layer reports it; total is -1 while unknown.
    std::function<void(qint64 received, qint64 total)> progress = {};
    // A compressed body that was cut looks whole to the network layer, whatever length it
    // announced. This says whether such a body shows by itself that nothing is missing; without it
    // a compressed body is refused.
    std::function<bool(const QByteArray& body)> isWhole = {};
    // Asks for the body's SHA-256, as Sha256 writes it. It is computed while the body arrives.
    bool hashes = false;
    // Takes the pieces in place of the answer's body, which stays empty. Until it calls `next`,
    // from the event loop, no other comes: the server waits for a slow disk. Not asked about an
    // answer that has failed by then.
    std::function<void(const QByteArray& piece, std::function<void()> next)> sink = {};
};

void get(QNetworkAccessManager* network, const QNetworkRequest& request, Exchange exchange);
void post(QNetworkAccessManager* network, const QNetworkRequest& request, const QByteArray& body,
          Exchange exchange);
// Streams the body: it is never held in memory. One that breaks off fails with
// UploadBody::errorText.
void post(QNetworkAccessManager* network, const QNetworkRequest& request,
          std::unique_ptr<UploadBody> body, Exchange exchange);

// For Exchange::isWhole: nothing of a JSON object or array can be cut off without its end.
bool isJson(const QByteArray& body);
// Nothing of a ZIP can be cut off without the record that ends it.
bool isZip(const QByteArray& body);
// For bodies that whoever receives them checks: by a digest, or by reading them to their end.
bool isCheckedLater(const QByteArray& body);

// The text for an answer of the account server that is an error: the string `error` of a JSON
// object body, else the network layer's text.
QString accountErrorText(const Answer& answer);

// "Authorization: Bearer <token>"; a token with control characters counts as none, for it would
// write headers of its own. Redirects are then followed within the same origin only, so that the
// token never reaches another server.
void setBearerToken(QNetworkRequest& request, const QString& token);

// For requests that change something: whatever page a redirect leads to has not done it.
void refuseRedirects(QNetworkRequest& request);

constexpr qint64 maxAnswerBytes = 1024 * 1024;            // an account server's JSON
constexpr qint64 maxManifestBytes = 16 * 1024 * 1024;     // parsed in one go
constexpr qint64 maxDownloadBytes = 1024LL * 1024 * 1024; // held in memory until it is checked

} // namespace http
