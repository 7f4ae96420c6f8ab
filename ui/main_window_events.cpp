#include "app/settings.h"
#include "services/auth_client.h"
#include "services/update_manager.h"
#include "ui/elided_label.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QCoreApplication>
#include <QProgressBar>
#include <QTimer>

#include <utility>

namespace {

constexpr int restartDelayMs = 1200; // long enough to read why the window closes

int percentOf(qint64 received, qint64 total)
{
    return static_cast<int>(received * 100 / total);
}

} // namespace

void MainWindow::connectAuthClient()
{
    connect(m_auth, &AuthClient::loginSucceeded, this, &MainWindow::onLoginSucceeded);
    connect(m_auth, &AuthClient::loginFailed, this,
            [this](const QString& error) { setBusy(false, u"Login failed: " + error); });
    // A stored session that the server no longer knows goes without a word.
    connect(m_auth, &AuthClient::validationResult, this, [this](bool valid) {
        if (!valid)
            forgetSession();
    });
    connect(m_auth, &AuthClient::loggedOut, this, [this] {
        forgetSession();
        m_statusLabel->showText(QStringLiteral("Logged out") +
                                unlessWritten(Settings::get().unwrittenFile()));
    });
}

void MainWindow::connectServices()
{
    connect(m_versions, &VersionManager::manifestReady, this, &MainWindow::onManifestReady);
    connect(m_versions, &VersionManager::manifestFailed, this, [this](const QString& error) {
        m_statusLabel->showText(u"Offline - no cached manifest (" + error + u')' + takeAddition());
    });
    connect(m_versions, &VersionManager::downloadProgress, this, &MainWindow::onDownloadProgress);
    connect(m_versions, &VersionManager::installFinished, this, &MainWindow::onInstallFinished);
    connect(m_versions, &VersionManager::installFailed, this,
            [this](const QString& error) { setBusy(false, u"Download failed: " + error); });
    connect(m_versions, &VersionManager::gameLog, this, &MainWindow::appendConsole);
    connect(m_versions, &VersionManager::gameExited, this, &MainWindow::onGameExited);

    // Being up to date, and failing to find out, change nothing on screen: not connected. Only what
    // the player alone can put right is told.
    m_updates->whenUnfit(
        [this](const QString& version, const QString& lack) { onUpdateUnfit(version, lack); });
    connect(m_updates, &UpdateManager::updateAvailable, this, [this](const QString& newVersion) {
        m_statusLabel->showText(u"Updating launcher to " + newVersion + u"...");
    });
    connect(m_updates, &UpdateManager::updateProgress, this, &MainWindow::onUpdateProgress);
    connect(m_updates, &UpdateManager::updateReady, this, &MainWindow::onUpdateReady);
}

void MainWindow::onManifestReady(bool fromCache)
{
    populateProfiles();
    populateNews();
    const QString text =
        fromCache ? QStringLiteral("Offline - using cached version list")
                  : QStringLiteral("%1 versions available").arg(m_versions->versions().size());
    m_statusLabel->showText(text + takeAddition());
}

// What is added to an answer to the question for versions.
QString MainWindow::takeAddition()
{
    m_versionsAnswered = true;
    return std::exchange(m_unwrittenSettings, {}) + std::exchange(m_unfitUpdate, {});
}

// Also shows the download of the Java runtime.
void MainWindow::onDownloadProgress(qint64 received, qint64 total)
{
    if (total <= 0)
        return;
    m_progressBar->setMaximum(100);
    m_progressBar->setValue(percentOf(received, total));
}

void MainWindow::onGameExited(int exitCode)
{
    if (exitCode != 0)
        m_statusLabel->showText(
            QStringLiteral("Game exited with code %1 - see Console").arg(exitCode));
}

void MainWindow::onUpdateProgress(qint64 received, qint64 total)
{
    if (total <= 0)
        return;
    m_progressBar->setVisible(true);
    m_progressBar->setValue(percentOf(received, total));
}

// The list of versions may come at any time, and would take its place at once.
void MainWindow::onUpdateUnfit(const QString& version, const QString& lack)
{
    const QString text =
        u"Launcher " + version + u" would not start here: " + lack + u" - install its archive";
    if (!m_versionsAnswered)
        m_unfitUpdate = u"; " + text;
    // Somebody else's progress goes on.
    if (!m_isBusy)
        m_progressBar->hide();
    m_statusLabel->showText(text);
}

void MainWindow::onUpdateReady(const QString& newVersion)
{
    m_statusLabel->showText(u"Launcher " + newVersion + u" downloaded - restarting...");
    setBusy(true, QStringLiteral("Restarting..."));
    QTimer::singleShot(restartDelayMs, this, &QCoreApplication::quit);
}
