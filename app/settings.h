#pragma once

#include "app/settings_store.h"

#include <QString>

// The player's preferences and the signed-in session, kept between runs in the settings file of
// organization "Tessellan", application "Launcher". get() is the one instance of the program,
// created on first use and destroyed at exit; a second instance opened by a test sees the same
// file. Used from the GUI thread; the runtime worker reads path getters only.
//
// A getter returns the default while its key is absent and never writes it back. A setter stores
// what it is given, unchecked: an empty string is stored empty and from then on overrides the
// default. No operation fails; an unreadable file reads as absent keys. Whether the file took what
// was stored can be asked afterwards.
class Settings
{
public:
    Settings();

    static Settings& get();

    QString manifestUrl() const;
    QString javaPath() const;
    // Default: the per-user application data location + "/game", computed at every call.
    QString gameDir() const;
    QString lastVersion() const;
    // Base of every account request: no trailing slash expected, none removed.
    QString serverUrl() const;
    QString authToken() const;
    QString authUsername() const;
    QString authUuid() const;

    void setManifestUrl(const QString& url);
    void setJavaPath(const QString& path);
    void setGameDir(const QString& path);
    void setLastVersion(const QString& versionId);
    void setServerUrl(const QString& url);

    // Mind the order: AuthClient::loginSucceeded carries (username, uuid, token).
    void setAuth(const QString& token, const QString& username, const QString& uuid);
    // Removes the three keys; afterwards the getters return empty strings.
    void clearAuth();

    // Empty when everything stored is in the file, otherwise the path of the file that refused it.
    QString unwrittenFile();

private:
    SettingsStore m_store;
};
