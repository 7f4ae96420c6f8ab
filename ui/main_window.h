#pragma once

#include <QMainWindow>
#include <QStringList>

class AuthClient;
class Console;
class ElidedLabel;
class ProfilePage;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QStackedWidget;
class QTextBrowser;
class QToolButton;
class QVBoxLayout;
class UpdateManager;
class VersionManager;
struct GameVersion;
struct LaunchProfile;

// The launcher's only window: banner, sidebar, six pages, bottom bar and game console. It owns the
// services, starts the first network work when it is made, and turns every signal of theirs into
// the status line, the progress bar, the state of PLAY and the console. Lives in main for the whole
// process; GUI thread only. Each chapter below has a source file of its own.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);

protected:
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    bool focusNextPrevChild(bool next) override;

private Q_SLOTS:
    void onPlayClicked();
    void onLoginClicked();
    void onRegisterClicked();
    void onLogoutClicked();

private:
    // Frame and navigation
    void buildUi();
    QWidget* buildBottomBar();
    void buildConsole();
    void buildProfilePage();
    void syncNavButtons(QWidget* page);
    void setBusy(bool busy, const QString& text);
    void appendConsole(const QString& line);
    static QString unlessWritten(const QString& unwrittenFile);

    // Keyboard
    void enablePlay(bool enabled);
    void placeKeyboard(const QWidget* before, bool signedIn);

    // What the services report
    void connectAuthClient();
    void connectServices();
    void onManifestReady(bool fromCache);
    QString takeAddition();
    void onDownloadProgress(qint64 received, qint64 total);
    void onGameExited(int exitCode);
    void onUpdateProgress(qint64 received, qint64 total);
    void onUpdateUnfit(const QString& version, const QString& lack);
    void onUpdateReady(const QString& newVersion);

    // Sidebar and session
    void buildSidebar();
    void buildSignInForm(QVBoxLayout* column);
    bool readCredentials(QString& username, QString& password);
    void onLoginSucceeded(const QString& username, const QString& uuid, const QString& token);
    void forgetSession();
    void updateAuthUi();

    // Play flow
    QString selectedVersionId() const;
    QStringList authLaunchArgs() const;
    QStringList profileJvmArgs() const;
    QStringList launchArgs() const;
    void playVersion(const GameVersion& version, bool needsInstall);
    void installRuntime();
    void onInstallFinished(const QString& versionId);

    // Launch selector and profiles pages
    void buildLaunchSelector(QWidget* bar);
    void buildProfilePages();
    void buildProfileListPage();
    void buildProfileEditorPage();
    QFormLayout* buildEditorForm(QWidget* page);
    void onSelectionChanged(int index);
    void populateProfiles();
    void showProfilesPage();
    void showProfileEditor(const LaunchProfile* profile);
    void editProfile(const QListWidgetItem* item);
    void playCurrentProfile();
    void deleteCurrentProfile();
    int indexOfVersion(const QString& id);
    void saveProfile();
    QList<GameVersion> listedVersions() const;
    QString versionText(const GameVersion& version);
    void markVersion(const GameVersion& version, bool needsInstall);

    // News pages
    void buildNewsPages();
    void populateNews();
    void openNews(const QListWidgetItem* item);

    // Settings page
    void buildSettingsPage();
    void saveSettings();

    VersionManager* m_versions;
    UpdateManager* m_updates;
    AuthClient* m_auth;

    QComboBox* m_launchSelector = nullptr;
    QPushButton* m_playButton = nullptr;
    ElidedLabel* m_statusLabel = nullptr;
    QProgressBar* m_progressBar = nullptr;
    QWidget* m_sidebar = nullptr;
    QToolButton* m_newsButton = nullptr;
    QToolButton* m_profilesButton = nullptr;
    QToolButton* m_profileButton = nullptr;
    QToolButton* m_settingsButton = nullptr;
    QPushButton* m_consoleButton = nullptr;
    QLineEdit* m_usernameField = nullptr;
    QLineEdit* m_passwordField = nullptr;
    QPushButton* m_loginButton = nullptr;
    QPushButton* m_registerButton = nullptr;
    QLabel* m_authLabel = nullptr;
    QPushButton* m_logoutButton = nullptr;
    Console* m_console = nullptr;
    QStackedWidget* m_pages = nullptr;

    QListWidget* m_newsList = nullptr;
    ElidedLabel* m_newsTitle = nullptr;
    ElidedLabel* m_newsDate = nullptr;
    QTextBrowser* m_newsBody = nullptr;

    QListWidget* m_profileList = nullptr;
    QString m_previousName; // of the profile in the editor; empty for a new one
    QString m_previousVersion;
    QLineEdit* m_nameField = nullptr;
    QComboBox* m_versionCombo = nullptr;
    QSpinBox* m_xmsSpin = nullptr;
    QSpinBox* m_xmxSpin = nullptr;
    QLineEdit* m_extraArgsField = nullptr;
    QLabel* m_errorLabel = nullptr;

    ProfilePage* m_profilePage = nullptr;
    QWidget* m_settingsPage = nullptr;
    QLineEdit* m_manifestUrlField = nullptr;
    QLineEdit* m_serverUrlField = nullptr;
    QLineEdit* m_javaPathField = nullptr;
    QLineEdit* m_gameDirField = nullptr;
    QString m_unwrittenSettings; // what the answer to the save's request says as well

    bool m_isBusy = false;
    bool m_versionsAnswered = false;
    QString m_unfitUpdate; // what the first answer says as well

    QString m_awaitedPlay;          // the version whose jar is read before it is played
    bool m_playAwaitsFocus = false; // it had the keyboard when it was disabled
};
