#include "app/settings.h"
#include "profiles/profile_manager.h"
#include "services/runtime_manager.h"
#include "ui/elided_label.h"
#include "ui/main_window.h"
#include "ui/pages.h"
#include "versions/version_manager.h"

#include <QComboBox>
#include <QProgressBar>

#include <algorithm>
#include <utility>

// Each preparation ends by coming back here, so that one click leads from nothing to the game.
void MainWindow::onPlayClicked()
{
    const QString id = selectedVersionId();
    if (id.isEmpty())
        return;
    // First, before anything can fail.
    if (id.size() <= pages::maxRecordedChars)
        Settings::get().setLastVersion(id);

    const QString javaPath = Settings::get().javaPath();
    const bool ownRuntime = javaPath.isEmpty() || javaPath == u"java";
    if (ownRuntime && !RuntimeManager::isInstalled()) {
        installRuntime();
        return;
    }

    const auto& versions = m_versions->versions();
    const auto version = std::ranges::find(versions, id, &GameVersion::id);
    if (version == versions.cend())
        return;
    // A jar that changed since the manifest arrived is read first. Who presses again meanwhile does
    // not play twice; who presses with another choice plays that alone.
    m_awaitedPlay = id;
    m_versions->whenKnown(*version, [this, v = *version](bool needsInstall) {
        if (m_awaitedPlay != v.id)
            return;
        m_awaitedPlay.clear();
        playVersion(v, needsInstall);
    });
}

void MainWindow::playVersion(const GameVersion& version, bool needsInstall)
{
    if (needsInstall) {
        const bool present = m_versions->isInstalled(version.id);
        setBusy(true, (present ? u"Updating " : u"Downloading ") + version.id + u"...");
        m_versions->install(version);
        return;
    }
    QString error;
    const bool launched = m_versions->launch(version.id, &error, launchArgs());
    m_statusLabel->showText(launched ? QString(u"Launched " + version.id) : error);
}

// A fresh manager at every click; it lives as long as the window. The window is the context of each
// connection, so that what its worker thread emits arrives on this one.
void MainWindow::installRuntime()
{
    setBusy(true, QStringLiteral("Downloading Java runtime (one-time)..."));
    auto* runtime = new RuntimeManager(this);
    connect(runtime, &RuntimeManager::downloadProgress, this, &MainWindow::onDownloadProgress);
    connect(runtime, &RuntimeManager::installFailed, this,
            [this](const QString& error) { setBusy(false, error); });
    connect(runtime, &RuntimeManager::installFinished, this, [this] {
        m_progressBar->hide();
        setBusy(false, QStringLiteral("Java runtime installed"));
        onPlayClicked();
    });
    runtime->install();
}

void MainWindow::onInstallFinished(const QString& versionId)
{
    m_progressBar->hide();
    m_isBusy = false;
    enablePlay(true);
    m_statusLabel->showText(versionId + u" installed - launching...");
    QString error;
    if (!m_versions->launch(versionId, &error, launchArgs()))
        m_statusLabel->showText(error);
    populateProfiles();
}

QString MainWindow::selectedVersionId() const
{
    const QString entry = m_launchSelector->currentData().toString();
    if (entry.startsWith(pages::versionPrefix))
        return entry.mid(pages::versionPrefix.size());
    const LaunchProfile* profile = ProfileManager::get().find(entry);
    return profile ? profile->version : QString();
}

QStringList MainWindow::launchArgs() const
{
    return profileJvmArgs() + authLaunchArgs();
}

QStringList MainWindow::profileJvmArgs() const
{
    const QString entry = m_launchSelector->currentData().toString();
    const LaunchProfile* profile =
        entry.startsWith(pages::versionPrefix) ? nullptr : ProfileManager::get().find(entry);
    if (!profile)
        return {QStringLiteral("-Xms512m"), QStringLiteral("-Xmx2048m")};
    // What the policy drops is dropped without a word here.
    return ProfileManager::get().jvmArgsFor(*profile, nullptr);
}

QStringList MainWindow::authLaunchArgs() const
{
    const Settings& settings = Settings::get();
    if (settings.authToken().isEmpty())
        return {};
    return {QStringLiteral("--username"),   settings.authUsername(),
            QStringLiteral("--uuid"),       settings.authUuid(),
            QStringLiteral("--token"),      settings.authToken(),
            QStringLiteral("--authserver"), settings.serverUrl()};
}
