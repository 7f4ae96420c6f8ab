#include "app/deployment.h"
#include "app/settings.h"
#include "tests/support/throwaway_home.h"

#include <QSettings>
#include <QStandardPaths>
#include <QTest>

class TestSettings : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        throwaway_home::clear();
        QCoreApplication::setApplicationName(QStringLiteral("Tessellan Launcher"));
        QCoreApplication::setOrganizationName(QStringLiteral("Tessellan"));
    }

    void reportsDefaultsWhenNothingIsStored()
    {
        const Settings settings;
        QCOMPARE(settings.serverUrl(), QString(deployment::serverOrigin));
        QCOMPARE(settings.manifestUrl(), QString(deployment::serverOrigin + u"/manifest.json"));
        QCOMPARE(settings.javaPath(), QStringLiteral("java"));
        QCOMPARE(settings.gameDir(),
                 QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + u"/game");
        QVERIFY(settings.gameDir().contains(u"/Tessellan/Tessellan Launcher/game"));
        QCOMPARE(settings.lastVersion(), QString());
        QCOMPARE(settings.authToken(), QString());
        QCOMPARE(settings.authUsername(), QString());
        QCOMPARE(settings.authUuid(), QString());
    }

    void neverWritesDefaultsBack()
    {
        const Settings settings;
        (void)settings.manifestUrl();
        (void)settings.javaPath();
        (void)settings.gameDir();
        (void)settings.serverUrl();
        QVERIFY(storedKeys().isEmpty());
    }

    void storesUnderTheirKeys_data()
    {
        QTest::addColumn<QString>("key");
        QTest::newRow("manifest address") << QStringLiteral("manifestUrl");
        QTest::newRow("java path") << QStringLiteral("javaPath");
        QTest::newRow("game directory") << QStringLiteral("gameDir");
        QTest::newRow("last version") << QStringLiteral("lastVersion");
        QTest::newRow("server address") << QStringLiteral("serverUrl");
    }

    void storesUnderTheirKeys()
    {
        QFETCH(QString, key);
        static const QHash<QString, void (Settings::*)(const QString&)> setters{
            {QStringLiteral("manifestUrl"), &Settings::setManifestUrl},
            {QStringLiteral("javaPath"), &Settings::setJavaPath},
            {QStringLiteral("gameDir"), &Settings::setGameDir},
            {QStringLiteral("lastVersion"), &Settings::setLastVersion},
            {QStringLiteral("serverUrl"), &Settings::setServerUrl}};
        Settings settings;
        (settings.*setters[key])(QStringLiteral(" a value "));
        QCOMPARE(storedKeys(), QStringList{key});
        QCOMPARE(stored(key), QStringLiteral(" a value "));
    }

    void keepsEmptyStringsInsteadOfDefaults()
    {
        Settings settings;
        settings.setGameDir(QString());
        settings.setJavaPath(QStringLiteral(""));
        settings.setManifestUrl(QStringLiteral(""));
        settings.setServerUrl(QStringLiteral(""));
        const Settings again;
        QCOMPARE(again.gameDir(), QString());
        QCOMPARE(again.javaPath(), QString());
        QCOMPARE(again.manifestUrl(), QString());
        QCOMPARE(again.serverUrl(), QString());
    }

    void keepsTheManifestWhenTheServerChanges()
    {
        Settings settings;
        settings.setServerUrl(QStringLiteral("https://elsewhere.example"));
        QCOMPARE(settings.manifestUrl(), QString(deployment::serverOrigin + u"/manifest.json"));
    }

    void takesTokenNameAndUuidInThatOrder()
    {
        Settings settings;
        settings.setAuth(QStringLiteral("t"), QStringLiteral("name"), QStringLiteral("id"));
        QCOMPARE(stored(QStringLiteral("authToken")), QStringLiteral("t"));
        QCOMPARE(stored(QStringLiteral("authUsername")), QStringLiteral("name"));
        QCOMPARE(stored(QStringLiteral("authUuid")), QStringLiteral("id"));
    }

    void removesTheSessionKeys()
    {
        Settings settings;
        settings.setAuth(QStringLiteral("t"), QStringLiteral("name"), QStringLiteral("id"));
        settings.clearAuth();
        QVERIFY(storedKeys().isEmpty());
        QCOMPARE(settings.authToken(), QString());
        QCOMPARE(settings.authUsername(), QString());
        QCOMPARE(settings.authUuid(), QString());
    }

    void followsTheApplicationIdentity()
    {
        const Settings settings;
        QCoreApplication::setApplicationName(QStringLiteral("Other"));
        QVERIFY(settings.gameDir().endsWith(u"/Tessellan/Other/game"));
    }

    void readsGarbageAsNothingStored()
    {
        QFile file(throwaway_home::settingsFile());
        QDir().mkpath(QFileInfo(file).absolutePath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(4096, '\xff') + "\n[[[\n=\n%%%=\x01\n");
        file.close();
        const Settings settings;
        QCOMPARE(settings.javaPath(), QStringLiteral("java"));
        QCOMPARE(settings.authToken(), QString());
    }

    void isOneInstance() { QCOMPARE(&Settings::get(), &Settings::get()); }

private:
    static QStringList storedKeys()
    {
        return QSettings(QStringLiteral("Tessellan"), QStringLiteral("Launcher")).allKeys();
    }

    static QString stored(const QString& key)
    {
        return QSettings(QStringLiteral("Tessellan"), QStringLiteral("Launcher"))
            .value(key)
            .toString();
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
