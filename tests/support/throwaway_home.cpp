#include "tests/support/throwaway_home.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

namespace {

QTemporaryDir& home()
{
    static QTemporaryDir directory;
    return directory;
}

void pointTo(const char* variable, const char* subdirectory)
{
    const QString target = home().filePath(QString::fromLatin1(subdirectory));
    QDir().mkpath(target);
    qputenv(variable, QFile::encodeName(target));
}

} // namespace

namespace throwaway_home {

void enter()
{
    Q_ASSERT(!QCoreApplication::instance());
    pointTo("HOME", "");
    pointTo("XDG_CONFIG_HOME", "config");
    pointTo("XDG_DATA_HOME", "data");
    pointTo("XDG_CACHE_HOME", "cache");
    pointTo("TMPDIR", "tmp");
    // No system-wide file may answer for an absent key.
    pointTo("XDG_CONFIG_DIRS", "no-system-config");
}

void clear()
{
    QSettings(QStringLiteral("Tessellan"), QStringLiteral("Launcher")).clear();
    QFile::remove(settingsFile());
    QDir(home().filePath(QStringLiteral("data"))).removeRecursively();
    QDir().mkpath(home().filePath(QStringLiteral("data")));
}

QString path()
{
    return home().path();
}

QString settingsFile()
{
    return QSettings(QStringLiteral("Tessellan"), QStringLiteral("Launcher")).fileName();
}

} // namespace throwaway_home
