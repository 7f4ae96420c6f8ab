#include "profiles/profile_manager.h"
#include "tests/support/files.h"
#include "tests/support/throwaway_home.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTest>

namespace {

const auto profilesKey = QStringLiteral("profiles");
const auto activeKey = QStringLiteral("activeProfile");

// JSON is easier to read here with single quotes.
QByteArray json(QByteArray text)
{
    return text.replace('\'', '"');
}

QSettings store()
{
    return QSettings(QStringLiteral("Tessellan"), QStringLiteral("Launcher"));
}

void storeProfiles(const QByteArray& value)
{
    QSettings settings(QStringLiteral("Tessellan"), QStringLiteral("Launcher"));
    settings.setValue(profilesKey, value);
}

LaunchProfile named(const QString& name)
{
    LaunchProfile p;
    p.name = name;
    return p;
}

QStringList namesOf(const ProfileManager& manager)
{
    QStringList names;
    for (const LaunchProfile& p : manager.profiles())
        names.append(p.name);
    return names;
}

} // namespace

class TestProfileManager : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init() { throwaway_home::clear(); }

    void startsEmpty()
    {
        const ProfileManager manager;
        QVERIFY(manager.profiles().isEmpty());
        QCOMPARE(manager.activeProfile(), QString());
        QVERIFY(!manager.find(QString()));
        QVERIFY(store().allKeys().isEmpty());
    }

    void hasDefaultHeapSizes()
    {
        const LaunchProfile p;
        QCOMPARE(p.xms, 512);
        QCOMPARE(p.xmx, 2048);
        QVERIFY(p.extraJvmArgs.isEmpty());
    }

    void storesACompactArrayInOrder()
    {
        ProfileManager manager;
        QVERIFY(manager.save(
            {QStringLiteral("Z"), QStringLiteral("0.3"), 64, 128, QStringLiteral("-Dx=1")},
            QString(), nullptr));
        QVERIFY(manager.save(named(QStringLiteral("A")), QString(), nullptr));
        const QVariant value = store().value(profilesKey);
        QCOMPARE(value.metaType().id(), QMetaType::QByteArray);
        QCOMPARE(value.toByteArray(),
                 json("[{'extraJvmArgs':'-Dx=1','name':'Z','version':'0.3','xms':64,'xmx':128},"
                      "{'extraJvmArgs':'','name':'A','version':'','xms':512,'xmx':2048}]"));
    }

    void readsBackWhatItStored()
    {
        const LaunchProfile stored{QStringLiteral("Ünï \t ✓"), QStringLiteral("0.3"), 33, 34,
                                   QStringLiteral("-Da='b' -Dc=\\d")};
        ProfileManager().save(stored, QString(), nullptr);
        const ProfileManager manager;
        QCOMPARE(manager.profiles().size(), 1);
        const LaunchProfile& p = manager.profiles().constFirst();
        QCOMPARE(p.name, stored.name);
        QCOMPARE(p.version, stored.version);
        QCOMPARE(p.xms, 33);
        QCOMPARE(p.xmx, 34);
        QCOMPARE(p.extraJvmArgs, stored.extraJvmArgs);
    }

    void readsUnusableDataAsEmpty_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("an object") << json("{'name':'A'}");
        QTest::newRow("a string") << json("'A'");
        QTest::newRow("cut") << json("[{'name':'A'}");
        QTest::newRow("garbage") << QByteArray("\x00\xff[[[\x01", 6);
        QTest::newRow("too deep") << QByteArray(2000, '[') + QByteArray(2000, ']');
        QTest::newRow("no objects in it") << json("[1,'A',null,['name'],{}]");
    }

    void readsUnusableDataAsEmpty()
    {
        QFETCH(QByteArray, stored);
        storeProfiles(stored);
        QVERIFY(ProfileManager().profiles().isEmpty());
    }

    void survivesAGarbageFile()
    {
        writeFile(throwaway_home::settingsFile(),
                  QByteArray(4096, '\xff') + "\n[[[\n=\n%%%=\x01\n");
        ProfileManager manager;
        QVERIFY(manager.profiles().isEmpty());
        QVERIFY(manager.save(named(QStringLiteral("A")), QString(), nullptr));
        QCOMPARE(namesOf(ProfileManager()), QStringList{QStringLiteral("A")});
    }

    void fillsInHeapSizes_data()
    {
        QTest::addColumn<QByteArray>("fields");
        QTest::addColumn<int>("xms");
        QTest::addColumn<int>("xmx");
        QTest::newRow("missing") << QByteArray() << 512 << 2048;
        QTest::newRow("strings") << json(",'xms':'64','xmx':'65'") << 512 << 2048;
        QTest::newRow("null") << json(",'xms':null,'xmx':null") << 512 << 2048;
        QTest::newRow("unacceptable but numbers") << json(",'xms':8,'xmx':-4") << 8 << -4;
    }

    void fillsInHeapSizes()
    {
        QFETCH(QByteArray, fields);
        QFETCH(int, xms);
        QFETCH(int, xmx);
        storeProfiles(QByteArray(json("[{'name':'A'") + fields + "}]"));
        const ProfileManager manager;
        QCOMPARE(manager.profiles().constFirst().xms, xms);
        QCOMPARE(manager.profiles().constFirst().xmx, xmx);
    }

    void loadsWithoutValidation()
    {
        storeProfiles(json("[{'name':'A','extraJvmArgs':'\\'q\\'','version':7},"
                           "{'name':'A','xms':1},{'name':'  '}]"));
        const ProfileManager manager;
        const QStringList expected{QStringLiteral("A"), QStringLiteral("A"), QStringLiteral("  ")};
        QCOMPARE(namesOf(manager), expected);
        QCOMPARE(manager.profiles()[0].extraJvmArgs, QStringLiteral("\"q\""));
        QCOMPARE(manager.profiles()[0].version, QString());
        QCOMPARE(manager.find(QStringLiteral("A")), &manager.profiles()[0]);
    }

    void dropsNamelessProfilesAtTheNextWrite()
    {
        storeProfiles(json("[{'name':''},{'xms':64},{'name':'A'}]"));
        ProfileManager manager;
        QCOMPARE(namesOf(manager), QStringList{QStringLiteral("A")});
        QCOMPARE(storedProfiles().size(), 3);
        QVERIFY(manager.save(named(QStringLiteral("B")), QString(), nullptr));
        QCOMPARE(storedProfiles().size(), 2);
    }

    void findsByExactName()
    {
        ProfileManager manager;
        QVERIFY(manager.save(named(QStringLiteral("A")), QString(), nullptr));
        QVERIFY(manager.find(QStringLiteral("A")));
        QVERIFY(!manager.find(QStringLiteral("a")));
        QVERIFY(!manager.find(QStringLiteral("A ")));
    }

    void refuses_data()
    {
        const auto emptyName = QStringLiteral("Profile name cannot be empty");
        const auto wrongWay = QStringLiteral("Xms cannot be greater than Xmx");
        const auto quotes = QStringLiteral("Quotes are not allowed in JVM args");
        const auto taken = QStringLiteral("A profile with this name already exists");
        QTest::addColumn<LaunchProfile>("profile");
        QTest::addColumn<QString>("previousName");
        QTest::addColumn<QString>("message");
        const auto row = [](const char* name, const LaunchProfile& p, const QString& message,
                            const QString& previousName = QString()) {
            QTest::newRow(name) << p << previousName << message;
        };
        const QString n = QStringLiteral("New");
        const QString v;
        row("no name", {v, v, 64, 64, v}, emptyName);
        row("blank name", {QStringLiteral("  "), v, 64, 64, v}, emptyName);
        row("tab and newline", {QStringLiteral("\t\n"), v, 64, 64, v}, emptyName);
        row("wrong way round", {n, v, 65, 64, v}, wrongWay);
        row("wrong way round and too small", {n, v, 16, 8, v}, wrongWay);
        row("xms too small", {n, v, 31, 2048, v}, QStringLiteral("Xms must be at least 32 MB"));
        row("both too small", {n, v, 8, 16, v}, QStringLiteral("Xms must be at least 32 MB"));
        row("quotes", {n, v, 64, 64, QStringLiteral("-Da=\"b\"")}, quotes);
        row("name taken", named(QStringLiteral("B")), taken);
        row("renamed to a taken name", named(QStringLiteral("B")), taken, QStringLiteral("A"));
        row("name before heap", {v, v, 9, 8, QStringLiteral("\"")}, emptyName);
        row("heap before quotes", {n, v, 9, 8, QStringLiteral("\"")}, wrongWay);
        row("quotes before name taken", {QStringLiteral("B"), v, 64, 64, QStringLiteral("\"")},
            quotes);
    }

    void refuses()
    {
        QFETCH(LaunchProfile, profile);
        QFETCH(QString, previousName);
        QFETCH(QString, message);
        ProfileManager manager;
        QVERIFY(manager.save(named(QStringLiteral("A")), QString(), nullptr));
        QVERIFY(manager.save(named(QStringLiteral("B")), QString(), nullptr));
        const QByteArray before = store().value(profilesKey).toByteArray();
        QString error;
        QVERIFY(!manager.save(profile, previousName, &error));
        QCOMPARE(error, message);
        QVERIFY(!manager.save(profile, previousName, nullptr));
        const QStringList expected{QStringLiteral("A"), QStringLiteral("B")};
        QCOMPARE(namesOf(manager), expected);
        QCOMPARE(store().value(profilesKey).toByteArray(), before);
    }

    void accepts_data()
    {
        QTest::addColumn<LaunchProfile>("profile");
        const QString v;
        QTest::newRow("smallest heap") << LaunchProfile{QStringLiteral("N"), v, 32, 32, v};
        QTest::newRow("single quotes")
            << LaunchProfile{QStringLiteral("N"), v, 64, 64, QStringLiteral("-Da='b c'\t;")};
        QTest::newRow("blanks around the name") << named(QStringLiteral(" a "));
        QTest::newRow("other letter case") << named(QStringLiteral("a"));
    }

    void accepts()
    {
        QFETCH(LaunchProfile, profile);
        ProfileManager manager;
        QVERIFY(manager.save(named(QStringLiteral("A")), QString(), nullptr));
        QString error = QStringLiteral("untouched");
        QVERIFY(manager.save(profile, QString(), &error));
        QCOMPARE(error, QStringLiteral("untouched"));
        QCOMPARE(manager.profiles().constLast().name, profile.name);
        QCOMPARE(ProfileManager().profiles().constLast().name, profile.name);
    }

    void overwritesInPlace()
    {
        ProfileManager manager = withThree();
        const LaunchProfile changed{QStringLiteral("Bee"), QStringLiteral("0.4"), 40, 50,
                                    QStringLiteral("-Dx")};
        QVERIFY(manager.save(changed, QStringLiteral("B"), nullptr));
        const QStringList expected{QStringLiteral("A"), QStringLiteral("Bee"), QStringLiteral("C")};
        QCOMPARE(namesOf(manager), expected);
        const LaunchProfile& stored = manager.profiles()[1];
        QCOMPARE(stored.version, QStringLiteral("0.4"));
        QCOMPARE(stored.xms, 40);
        QCOMPARE(stored.xmx, 50);
        QCOMPARE(stored.extraJvmArgs, QStringLiteral("-Dx"));
    }

    void savesUnderItsOwnName()
    {
        ProfileManager manager = withThree();
        QVERIFY(manager.save(named(QStringLiteral("A")), QStringLiteral("A"), nullptr));
        QCOMPARE(manager.profiles().size(), 3);
    }

    void appendsWhenThePreviousNameIsUnknown()
    {
        ProfileManager manager = withThree();
        QVERIFY(manager.save(named(QStringLiteral("D")), QStringLiteral("no such"), nullptr));
        QCOMPARE(manager.profiles().constLast().name, QStringLiteral("D"));
    }

    void leavesTheActiveNameWhenRenaming()
    {
        ProfileManager manager = withThree();
        manager.setActiveProfile(QStringLiteral("A"));
        QVERIFY(manager.save(named(QStringLiteral("X")), QStringLiteral("A"), nullptr));
        QCOMPARE(manager.activeProfile(), QStringLiteral("A"));
    }

    void storesAnyActiveName()
    {
        ProfileManager manager;
        manager.setActiveProfile(QStringLiteral("nobody"));
        QCOMPARE(store().value(activeKey).toString(), QStringLiteral("nobody"));
        QCOMPARE(ProfileManager().activeProfile(), QStringLiteral("nobody"));
    }

    void removesTheActiveProfile()
    {
        ProfileManager manager = withThree();
        manager.setActiveProfile(QStringLiteral("B"));
        QVERIFY(manager.remove(QStringLiteral("B")));
        QVERIFY(!store().contains(activeKey));
        const QStringList expected{QStringLiteral("A"), QStringLiteral("C")};
        QCOMPARE(namesOf(ProfileManager()), expected);
    }

    void keepsTheActiveNameWhenAnotherIsRemoved()
    {
        ProfileManager manager = withThree();
        manager.setActiveProfile(QStringLiteral("B"));
        QVERIFY(manager.remove(QStringLiteral("A")));
        QCOMPARE(manager.activeProfile(), QStringLiteral("B"));
    }

    void removesNothingUnknown()
    {
        ProfileManager manager = withThree();
        manager.setActiveProfile(QStringLiteral("ghost"));
        QVERIFY(!manager.remove(QStringLiteral("ghost")));
        QCOMPARE(manager.activeProfile(), QStringLiteral("ghost"));
        QCOMPARE(manager.profiles().size(), 3);
    }

    void removesTheFirstOfTwoEqualNames()
    {
        storeProfiles(json("[{'name':'A','xms':100},{'name':'A','xms':200}]"));
        ProfileManager manager;
        QVERIFY(manager.remove(QStringLiteral("A")));
        QCOMPARE(manager.profiles().constFirst().xms, 200);
    }

    // Such a name goes with the profile that it belongs to.
    void takesNamesOutOfItsOwnList_data()
    {
        QTest::addColumn<qsizetype>("position");
        QTest::newRow("the first") << qsizetype(0);
        QTest::newRow("one between") << qsizetype(1);
        QTest::newRow("the last") << qsizetype(2);
    }

    void takesNamesOutOfItsOwnList()
    {
        QFETCH(qsizetype, position);
        storeProfiles(json("[{'name':'one of three'},{'name':'two of three'},{'name':'3'}]"));
        ProfileManager manager;
        const QString copy = QString::fromUtf8(manager.profiles().at(position).name.toUtf8());
        manager.setActiveProfile(copy);
        QVERIFY(manager.save(manager.profiles().at(position), manager.profiles().at(position).name,
                             nullptr));
        QVERIFY(manager.remove(manager.profiles().at(position).name));
        QVERIFY(!store().contains(activeKey));
        QVERIFY(!manager.find(copy));
        QCOMPARE(ProfileManager().profiles().size(), 2);
    }

    void keepsManyProfiles()
    {
        QByteArray many = "[";
        for (int i = 0; i < 100'000; ++i)
            many += "{\"name\":\"" + QByteArray::number(i) + "\"},";
        many.back() = ']';
        storeProfiles(many);
        ProfileManager manager;
        QCOMPARE(manager.profiles().size(), 100'000);
        QVERIFY(manager.save(named(QStringLiteral("last")), QString(), nullptr));
        QCOMPARE(manager.unwrittenFile(), QString());
        QCOMPARE(ProfileManager().profiles().size(), 100'001);
    }

    void doesNotNoticeOutsideEdits()
    {
        ProfileManager manager = withThree();
        storeProfiles(QByteArray("[]"));
        QCOMPARE(manager.profiles().size(), 3);
        QVERIFY(manager.remove(QStringLiteral("A")));
        QCOMPARE(storedProfiles().size(), 2);
    }

    void isOneInstance() { QCOMPARE(&ProfileManager::get(), &ProfileManager::get()); }

private:
    static ProfileManager withThree()
    {
        storeProfiles(json("[{'name':'A'},{'name':'B'},{'name':'C'}]"));
        return ProfileManager();
    }

    static QJsonArray storedProfiles()
    {
        return QJsonDocument::fromJson(store().value(profilesKey).toByteArray()).array();
    }
};

QTEST_GUILESS_MAIN(TestProfileManager)
#include "tst_profile_manager.moc"
