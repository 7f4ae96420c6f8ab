#include "app/settings.h"

#include "app/deployment.h"

#include <QLatin1StringView>
#include <QStandardPaths>

namespace {

constexpr QLatin1StringView manifestUrlKey{"manifestUrl"};
constexpr QLatin1StringView javaPathKey{"javaPath"};
constexpr QLatin1StringView gameDirKey{"gameDir"};
constexpr QLatin1StringView lastVersionKey{"lastVersion"};
constexpr QLatin1StringView serverUrlKey{"serverUrl"};
constexpr QLatin1StringView authTokenKey{"authToken"};
constexpr QLatin1StringView authUsernameKey{"authUsername"};
constexpr QLatin1StringView authUuidKey{"authUuid"};

} // namespace

Settings::Settings() = default;

Settings& Settings::get()
{
    static Settings settings;
    return settings;
}

// Not derived from a configured server address: changing the account server leaves the manifest
// where it was.
QString Settings::manifestUrl() const
{
    return m_store.value(manifestUrlKey, QString(deployment::serverOrigin + u"/manifest.json"))
        .toString();
}

QString Settings::javaPath() const
{
    return m_store.value(javaPathKey, QStringLiteral("java")).toString();
}

QString Settings::gameDir() const
{
    const QString data = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    return m_store.value(gameDirKey, QString(data + u"/game")).toString();
}

QString Settings::lastVersion() const
{
    return m_store.value(lastVersionKey, QString()).toString();
}

QString Settings::serverUrl() const
{
    return m_store.value(serverUrlKey, QString(deployment::serverOrigin)).toString();
}

QString Settings::authToken() const
{
    return m_store.value(authTokenKey, QString()).toString();
}

QString Settings::authUsername() const
{
    return m_store.value(authUsernameKey, QString()).toString();
}

QString Settings::authUuid() const
{
    return m_store.value(authUuidKey, QString()).toString();
}

void Settings::setManifestUrl(const QString& url)
{
    m_store.setValue(manifestUrlKey, url);
}

void Settings::setJavaPath(const QString& path)
{
    m_store.setValue(javaPathKey, path);
}

void Settings::setGameDir(const QString& path)
{
    m_store.setValue(gameDirKey, path);
}

void Settings::setLastVersion(const QString& versionId)
{
    m_store.setValue(lastVersionKey, versionId);
}

void Settings::setServerUrl(const QString& url)
{
    m_store.setValue(serverUrlKey, url);
}

void Settings::setAuth(const QString& token, const QString& username, const QString& uuid)
{
    m_store.setValue(authTokenKey, token);
    m_store.setValue(authUsernameKey, username);
    m_store.setValue(authUuidKey, uuid);
}

void Settings::clearAuth()
{
    m_store.remove(authTokenKey);
    m_store.remove(authUsernameKey);
    m_store.remove(authUuidKey);
}

QString Settings::unwrittenFile()
{
    return m_store.unwrittenFile();
}
