#include "services/http.h"

#include "archive/archive_source.h"
#include "archive/zip_end.h"
#include "services/reply_taker.h"
#include "services/upload_body.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <algorithm>

namespace {

// They would end the header's line, or the value.
bool holdsControls(const QByteArray& value)
{
    return std::ranges::any_of(
        value, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

} // namespace

namespace http {

void get(QNetworkAccessManager* network, const QNetworkRequest& request, Exchange exchange)
{
    new ReplyTaker(network->get(request), std::move(exchange));
}

void post(QNetworkAccessManager* network, const QNetworkRequest& request, const QByteArray& body,
          Exchange exchange)
{
    new ReplyTaker(network->post(request, body), std::move(exchange));
}

void post(QNetworkAccessManager* network, const QNetworkRequest& request,
          std::unique_ptr<UploadBody> body, Exchange exchange)
{
    UploadBody* const source = body.release();
    QNetworkReply* reply = network->post(request, source);
    source->setParent(reply);
    auto* taker = new ReplyTaker(reply, std::move(exchange));
    QObject::connect(source, &UploadBody::broke, taker,
                     [taker] { taker->explainFailure(UploadBody::errorText()); });
}

bool isJson(const QByteArray& body)
{
    return !QJsonDocument::fromJson(body).isNull();
}

bool isZip(const QByteArray& body)
{
    ArchiveSource source = ArchiveSource::memory(body);
    return ZipEnd::find(source).has_value();
}

bool isCheckedLater(const QByteArray& /*body*/)
{
    return true;
}

QString accountErrorText(const Answer& answer)
{
    const QString error = QJsonDocument::fromJson(answer.body).object()[u"error"].toString();
    return error.isEmpty() ? answer.error : error;
}

void setBearerToken(QNetworkRequest& request, const QString& token)
{
    const QByteArray value = token.toUtf8();
    request.setRawHeader("Authorization",
                         "Bearer " + (holdsControls(value) ? QByteArray() : value));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::SameOriginRedirectPolicy);
}

void refuseRedirects(QNetworkRequest& request)
{
    request.setMaximumRedirectsAllowed(0);
}

} // namespace http
