#pragma once

#include <QByteArray>
#include <QString>
#include <QWidget>

class AuthClient;
class QLabel;
class QLineEdit;
class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;
class QVBoxLayout;
class SkinPreview3D;

// The signed-in player's account page: name, uuid, skin and model, with the character in 3D where
// the machine has OpenGL 3.3. The preview is made when the page is first seen: a window that holds
// OpenGL starts later, and costs more at every frame of its banner. Owned by the main window; GUI
// thread. It follows the auth client's signals, and emits the client's loginSucceeded after a
// rename, so that everyone takes over the new name as after a sign-in. Whatever fails is told in
// the status label beside its button. A reply that arrives for an account that is no longer signed
// in is dropped.
class ProfilePage : public QWidget
{
    Q_OBJECT

public:
    ProfilePage(AuthClient* auth, QWidget* parent);

protected:
    void showEvent(QShowEvent* event) override;

private Q_SLOTS:
    void onUploadSkin();
    void onUploadModel();
    void onRenameClicked();
    // Asks the server for skin and model; an earlier round that is still under way is forgotten.
    void refreshAppearance();

private:
    void buildUi();
    void buildHeader(QVBoxLayout* page);
    void buildAccountCard(QVBoxLayout* page);
    void buildAppearanceCard(QVBoxLayout* page);
    void buildPreview();
    void showSkin(const QByteArray& png);
    void showModel(const QByteArray& json);
    void takeSession(const QString& username, const QString& uuid, const QString& token);
    void forgetSession();

    QNetworkRequest accountRequest(const QString& path, const QString& contentType) const;
    bool isSignedIn(const QString& uuid) const;
    void fetch(const QString& path, qint64 maxBytes, void (ProfilePage::*handler)(QNetworkReply*));
    void onSkinReply(QNetworkReply* reply);
    void onModelReply(QNetworkReply* reply);
    void onRenameReply(QNetworkReply* reply, const QString& name);
    void chooseAndUpload(QLabel* status, const QString& caption, const QString& filter,
                         bool isSkin);
    void uploadFile(const QString& path, const char* endpoint, const char* contentType,
                    bool isSkin);
    void onUploadReply(QNetworkReply* reply, bool isSkin);

    AuthClient* m_auth;
    QNetworkAccessManager* m_network;
    SkinPreview3D* m_preview = nullptr; // until the page is seen, and without OpenGL
    QLineEdit* m_username = nullptr;
    QLabel* m_renameStatus = nullptr;
    QLabel* m_uuidLabel = nullptr;
    QLabel* m_skinStatus = nullptr;
    QLabel* m_modelStatus = nullptr;
    QString m_uuid;
    QString m_token;
    int m_appearanceRound = 0;        // replies of an earlier round are dropped
    QLabel* m_previewPlace = nullptr; // until there is a preview; without OpenGL it says why
    QLabel* m_dragHint = nullptr;
    QByteArray m_skin; // what came before the preview was made
    QByteArray m_model;
};
