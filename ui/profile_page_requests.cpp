#include "ui/profile_page.h"

#include "app/settings.h"
#include "services/auth_client.h"
#include "services/http.h"

#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <optional>

namespace {

constexpr qint64 maxSkinBytes = 1024 * 1024;
constexpr qint64 maxModelBytes = 16 * 1024 * 1024; // parsed on the GUI thread
// What a file holds is the server's to judge, but it goes through memory.
constexpr qint64 maxUploadBytes = 256 * 1024 * 1024;

// A server may send a text of any length; nobody reads more than this, and laying it out takes
// time.
void showMessage(QLabel* status, const QString& message)
{
    constexpr qsizetype maxChars = 1000;
    status->setText(message.left(maxChars));
}

QString uploadErrorText(const QNetworkReply* reply, const QByteArray& body)
{
    const QJsonObject answer = QJsonDocument::fromJson(body).object();
    QString message = answer[u"error"].toString();
    QStringList reasons;
    for (const auto& reason : answer[u"reasons"].toArray())
        reasons << reason.toString();
    if (!reasons.isEmpty())
        message += u": " + reasons.join(u"; ");
    return message.isEmpty() ? reply->errorString() : message;
}

// Regular files only: a pipe would stop the window until somebody writes into it.
std::optional<QByteArray> contentOf(const QString& path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || file.size() > maxUploadBytes ||
        !file.open(QIODevice::ReadOnly))
        return {};
    QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return {};
    return content;
}

} // namespace

void ProfilePage::refreshAppearance()
{
    if (m_uuid.isEmpty())
        return;
    ++m_appearanceRound;
    fetch(QStringLiteral("/skins/%1.png").arg(m_uuid), maxSkinBytes, &ProfilePage::onSkinReply);
    fetch(QStringLiteral("/models/%1.json").arg(m_uuid), maxModelBytes, &ProfilePage::onModelReply);
}

void ProfilePage::fetch(const QString& path, qint64 maxBytes,
                        void (ProfilePage::*handler)(QNetworkReply*))
{
    QNetworkReply* reply = m_network->get(QNetworkRequest(QUrl(m_auth->endpoint(path))));
    http::limitBody(reply, maxBytes);
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, handler, round = m_appearanceRound] {
                reply->deleteLater();
                if (round == m_appearanceRound)
                    (this->*handler)(reply);
            });
}

// Without a skin on the server the preview keeps what it shows; so it does for the model.
void ProfilePage::onSkinReply(QNetworkReply* reply)
{
    const QByteArray body = reply->readAll();
    if (reply->error() == QNetworkReply::ContentNotFoundError) {
        m_skinStatus->setText(QStringLiteral("No skin uploaded (default look)."));
    } else if (http::errorText(reply, body.size()).isEmpty()) {
        showSkin(body);
        m_skinStatus->setText(QStringLiteral("Skin active."));
    }
}

void ProfilePage::onModelReply(QNetworkReply* reply)
{
    const QByteArray body = reply->readAll();
    if (reply->error() == QNetworkReply::ContentNotFoundError) {
        m_modelStatus->setText(QStringLiteral("No custom model (default character)."));
    } else if (http::errorText(reply, body.size()).isEmpty()) {
        showModel(body);
        const QJsonArray elements = QJsonDocument::fromJson(body).object()[u"elements"].toArray();
        m_modelStatus->setText(
            QStringLiteral("Custom model active (%1 cubes).").arg(elements.size()));
    }
}

QNetworkRequest ProfilePage::accountRequest(const QString& path, const QString& contentType) const
{
    QNetworkRequest request{QUrl(m_auth->endpoint(path))};
    request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    http::setBearerToken(request, m_token);
    return request;
}

bool ProfilePage::isSignedIn(const QString& uuid) const
{
    return !m_token.isEmpty() && m_uuid == uuid;
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
    QNetworkReply* reply = m_network->post(
        request, QJsonDocument(QJsonObject{{QStringLiteral("username"), name}}).toJson());
    http::limitBody(reply, http::maxAnswerBytes);
    connect(reply, &QNetworkReply::finished, this, [this, reply, name, uuid = m_uuid] {
        reply->deleteLater();
        if (isSignedIn(uuid))
            onRenameReply(reply, name);
    });
}

void ProfilePage::onRenameReply(QNetworkReply* reply, const QString& name)
{
    if (reply->error() != QNetworkReply::NoError) {
        showMessage(m_renameStatus, http::accountErrorText(reply, reply->readAll()));
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
    status->setText(QStringLiteral("Uploading..."));
    const std::optional<QByteArray> content = contentOf(path);
    if (!content) {
        status->setText(QStringLiteral("Cannot read file."));
        return;
    }
    const QNetworkRequest request =
        accountRequest(QString::fromLatin1(endpoint), QString::fromLatin1(contentType));
    QNetworkReply* reply = m_network->post(request, *content);
    http::limitBody(reply, http::maxAnswerBytes);
    connect(reply, &QNetworkReply::finished, this, [this, reply, isSkin, uuid = m_uuid] {
        reply->deleteLater();
        if (isSignedIn(uuid))
            onUploadReply(reply, isSkin);
    });
}

void ProfilePage::onUploadReply(QNetworkReply* reply, bool isSkin)
{
    QLabel* status = isSkin ? m_skinStatus : m_modelStatus;
    const QByteArray body = reply->readAll();
    if (reply->error() != QNetworkReply::NoError) {
        showMessage(status, uploadErrorText(reply, body));
        return;
    }
    status->setText(isSkin ? QStringLiteral("Skin uploaded.") : QStringLiteral("Model uploaded."));
    refreshAppearance();
}
