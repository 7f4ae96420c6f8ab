#pragma once

#include <QByteArray>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <memory>

class AuthClient;
class QLabel;
class QLineEdit;
class QNetworkAccessManager;
class QNetworkRequest;
class QVBoxLayout;
class SkinPreview3D;
namespace http {
struct Answer;
} // namespace http
struct ImportedModel;

// The signed-in player's account page: name, uuid, skin and model, with the character in 3D where
// the machine has OpenGL 3.3. The preview is made when the page is first seen: a window that holds
// OpenGL starts later, and costs more at every frame of its banner. Owned by the main window; GUI
// thread. It follows the auth client's signals, and emits the client's loginSucceeded after a
// rename, so that everyone takes over the new name as after a sign-in. Whatever fails is told in
// the status label beside its button. Its requests belong to the auth client's session, and end
// with it; of each kind only the newest is answered.
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
    // Asks the server for skin and model; an earlier round that is still under way is aborted.
    void refreshAppearance();

private:
    void buildUi();
    void buildHeader(QVBoxLayout* page);
    void buildAccountCard(QVBoxLayout* page);
    void buildAppearanceCard(QVBoxLayout* page);
    void buildPreview();
    void showSkin(const QByteArray& png);
    qsizetype showModel(const QByteArray& json); // the number of its elements
    void describeModel();
    void takeSession(const QString& username, const QString& uuid, const QString& token);
    void forgetSession();

    QNetworkRequest accountRequest(const QString& path, const QString& contentType) const;
    void fetchSkin(QObject* round);
    void fetchModel(QObject* round);
    void onSkinAnswer(const http::Answer& answer);
    void onModelAnswer(const http::Answer& answer);
    void onRenameAnswer(const http::Answer& answer, const QString& name);
    void chooseAndUpload(QLabel* status, const QString& caption, const QString& filter,
                         bool isSkin);
    void uploadFile(const QString& path, const char* endpoint, const char* contentType,
                    bool isSkin);
    void onUploadAnswer(const http::Answer& answer, bool isSkin);
    void forgetUploads();

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
    // What the newest request of each kind belongs to; the session owns and ends them.
    QPointer<QObject> m_appearanceRound;
    QPointer<QObject> m_renaming;
    QPointer<QObject> m_skinUpload;
    QPointer<QObject> m_modelUpload;
    QLabel* m_previewPlace = nullptr; // until there is a preview; without OpenGL it says why
    QLabel* m_dragHint = nullptr;
    QByteArray m_skin;                            // what came before the preview was made
    std::shared_ptr<const ImportedModel> m_model; // what came last
};
