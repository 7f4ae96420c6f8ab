#include "ui/profile_page.h"

#include "app/settings.h"
#include "services/account_session.h"
#include "services/auth_client.h"
#include "services/http.h"
#include "services/upload_body.h"
#include "ui/foreign_text.h"

#include <QFileDialog>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 maxSkinBytes = 16 * 1024 * 1024;  // the preview takes 4096 x 4096 pixels
constexpr qint64 maxModelBytes = 16 * 1024 * 1024; // parsed on the GUI thread
constexpr auto uploading = "Uploading..."_L1;

QString uploadErrorText(const http::Answer& upload)
{
    const QJsonObject answer = QJsonDocument::fromJson(upload.body).object();
    QString message = answer[u"error"].toString();
    QStringList reasons;
    for (const auto& reason : answer[u"reasons"].toArray())
        reasons << reason.toString();
    if (!reasons.isEmpty())
        message += u": " + reasons.join(u"; ");
    return message.isEmpty() ? upload.error : message;
}

bool isWholePng(const QByteArray& body)
{
    return body.endsWith(QByteArrayView("IEND\xae\x42\x60\x82"));
}

} // namespace

void ProfilePage::refreshAppearance()
{
    if (m_uuid.isEmpty())
        return;
    m_appearanceRound = m_auth->session()->renew(m_appearanceRound);
    fetchSkin(m_appearanceRound);
    fetchModel(m_appearanceRound);
}

void ProfilePage::fetchSkin(QObject* round)
{
    const QUrl url(m_auth->endpoint(u"/skins/%1.png"_s.arg(m_uuid)));
    http::get(m_network, QNetworkRequest(url),
              {.context = round,
               .maxBytes = maxSkinBytes,
               .done = [this](const http::Answer& answer) { onSkinAnswer(answer); },
               .isWhole = &isWholePng});
}

void ProfilePage::fetchModel(QObject* round)
{
    const QUrl url(m_auth->endpoint(u"/models/%1.json"_s.arg(m_uuid)));
    http::get(m_network, QNetworkRequest(url),
              {.context = round,
               .maxBytes = maxModelBytes,
               .done = [this](const http::Answer& answer) { onModelAnswer(answer); },
               .isWhole = &http::isJson});
}

// Without a skin on the server the preview keeps what it shows; so it does for the model.
void ProfilePage::onSkinAnswer(const http::Answer& answer)
{
    if (answer.notFound) {
        m_skinStatus->setText(QStringLiteral("No skin uploaded (default look)."));
    } else if (answer.error.isEmpty()) {
        showSkin(answer.body);
        m_skinStatus->setText(QStringLiteral("Skin active."));
    }
}

void ProfilePage::onModelAnswer(const http::Answer& answer)
{
    if (answer.notFound) {
        m_modelStatus->setText(QStringLiteral("No custom model (default character)."));
    } else if (answer.error.isEmpty()) {
        foreign_text::show(
            m_modelStatus,
            QStringLiteral("Custom model active (%1 cubes).").arg(showModel(answer.body)));
    }
}

QNetworkRequest ProfilePage::accountRequest(const QString& path, const QString& contentType) const
{
    QNetworkRequest request{QUrl(m_auth->endpoint(path))};
    request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    http::setBearerToken(request, m_token);
    http::refuseRedirects(request);
    return request;
}

void ProfilePage::onRenameClicked()
{
    const QString name = m_username->text().trimmed();
    if (m_token.isEmpty() || name.isEmpty()) {
        m_renameStatus->setText(m_token.isEmpty() ? QStringLiteral("Log in first.")
                                                  : QStringLiteral("Enter a username."));
        return;
    }
    const QNetworkRequest request =
        accountRequest(QStringLiteral("/auth/rename"), QStringLiteral("application/json"));
    m_renaming = m_auth->session()->renew(m_renaming);
    http::post(m_network, request, QJsonDocument(QJsonObject{{u"username"_s, name}}).toJson(),
               {.context = m_renaming,
                .maxBytes = http::maxAnswerBytes,
                .done = [this, name](const http::Answer& answer) { onRenameAnswer(answer, name); },
                .isWhole = &http::isJson});
}

void ProfilePage::onRenameAnswer(const http::Answer& answer, const QString& name)
{
    if (!answer.error.isEmpty()) {
        foreign_text::show(m_renameStatus, http::accountErrorText(answer));
        return;
    }
    m_renameStatus->setText(QStringLiteral("Username updated."));
    // Copies: the signal's receivers replace the members while they read its arguments.
    const QString uuid = m_uuid;
    const QString token = m_token;
    Settings::get().setAuth(token, name, uuid);
    Q_EMIT m_auth->loginSucceeded(name, uuid, token);
}

void ProfilePage::onUploadSkin()
{
    chooseAndUpload(m_skinStatus, QStringLiteral("Select skin"),
                    QStringLiteral("PNG images (*.png)"), true);
}

void ProfilePage::onUploadModel()
{
    chooseAndUpload(m_modelStatus, QStringLiteral("Select model"),
                    QStringLiteral("BlockBench model (*.bbmodel *.json)"), false);
}

void ProfilePage::chooseAndUpload(QLabel* status, const QString& caption, const QString& filter,
                                  bool isSkin)
{
    QString path;
    if (!m_token.isEmpty()) {
        path = QFileDialog::getOpenFileName(this, caption, QString(), filter);
        if (path.isEmpty())
            return;
    }
    // Asked again: the session may have ended while the dialog was open.
    if (m_token.isEmpty())
        status->setText(QStringLiteral("Log in first."));
    else if (isSkin)
        uploadFile(path, "/skins/upload", "image/png", true);
    else
        uploadFile(path, "/models/upload", "application/json", false);
}

void ProfilePage::uploadFile(const QString& path, const char* endpoint, const char* contentType,
                             bool isSkin)
{
    QLabel* status = isSkin ? m_skinStatus : m_modelStatus;
    status->setText(uploading); // own words
    std::unique_ptr<UploadBody> body = UploadBody::open(path);
    if (!body) {
        status->setText(UploadBody::errorText()); // own words
        return;
    }
    QPointer<QObject>& upload = isSkin ? m_skinUpload : m_modelUpload;
    upload = m_auth->session()->renew(upload);
    http::post(
        m_network, accountRequest(QString::fromLatin1(endpoint), QString::fromLatin1(contentType)),
        std::move(body),
        {.context = upload,
         .maxBytes = http::maxAnswerBytes,
         .done = [this, isSkin](const http::Answer& answer) { onUploadAnswer(answer, isSkin); },
         .isWhole = &http::isJson});
}

void ProfilePage::onUploadAnswer(const http::Answer& answer, bool isSkin)
{
    QLabel* status = isSkin ? m_skinStatus : m_modelStatus;
    if (!answer.error.isEmpty()) {
        foreign_text::show(status, uploadErrorText(answer));
        return;
    }
    status->setText(isSkin ? QStringLiteral("Skin uploaded.") : QStringLiteral("Model uploaded."));
    refreshAppearance();
}

// They ended with their session: nothing will take their place.
void ProfilePage::forgetUploads()
{
    for (QLabel* status : {m_skinStatus, m_modelStatus}) {
        if (status->text() == uploading)
            status->clear();
    }
}
