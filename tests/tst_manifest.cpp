#include "app/settings.h"
#include "tests/support/files.h"
#include "tests/support/heartbeat.h"
#include "tests/support/http_server.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/tls.h"
#include "versions/version_manager.h"

#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

#include <sys/stat.h>

namespace {

const QByteArray path = "/manifest.json";
const auto invalid = QStringLiteral("Invalid manifest");

// JSON is easier to read here with single quotes.
QByteArray json(QByteArray text)
{
    return text.replace('\'', '"');
}

const QByteArray good = json("{'versions':[{'id':'0.3','url':'http://x/a.jar','sha256':'AB',"
                             "'released':'today'}],"
                             "'news':[{'title':'Hello','date':'now','body':'text'}]}");
const QByteArray older = json("{'versions':[{'id':'0.1','url':'http://x/old.jar'}]}");

// As much as a server may send, in the shape that costs most to parse.
QByteArray manyShortEntries()
{
    QByteArray document = "{\"versions\":[";
    while (document.size() < 16 * 1024 * 1024 - 100)
        document += R"({"id":"1","url":"u"},)";
    document.chop(1);
    return document + "]}";
}

QByteArray nested(int depth)
{
    return QByteArray(depth, '[') + QByteArray(depth, ']');
}

QStringList idsOf(const VersionManager& manager)
{
    QStringList ids;
    for (const GameVersion& v : manager.versions())
        ids.append(v.id);
    return ids;
}

QStringList titlesOf(const VersionManager& manager)
{
    QStringList titles;
    for (const NewsItem& item : manager.news())
        titles.append(item.title);
    return titles;
}

} // namespace

class TestManifest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void initTestCase() { m_authority.trust(); }

    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        m_server = std::make_unique<HttpServer>();
        Settings::get().setGameDir(m_home->filePath(QStringLiteral("a/game")));
        Settings::get().setManifestUrl(m_server->url(QStringLiteral("/manifest.json")));
    }

    void startsWithEmptyLists()
    {
        const VersionManager manager;
        QVERIFY(manager.versions().isEmpty());
        QVERIFY(manager.news().isEmpty());
        QCOMPARE(manager.manifestCachePath(),
                 QString(Settings::get().gameDir() + u"/versions_manifest.json"));
    }

    void readsEveryField()
    {
        VersionManager manager;
        QVERIFY(manager.parseManifest(good));
        QCOMPARE(manager.versions().size(), 1);
        const GameVersion& v = manager.versions().constFirst();
        QCOMPARE(v.id, QStringLiteral("0.3"));
        QCOMPARE(v.url, QStringLiteral("http://x/a.jar"));
        QCOMPARE(v.sha256, QStringLiteral("AB"));
        QCOMPARE(v.released, QStringLiteral("today"));
        QCOMPARE(manager.news().size(), 1);
        const NewsItem& item = manager.news().constFirst();
        QCOMPARE(item.title, QStringLiteral("Hello"));
        QCOMPARE(item.date, QStringLiteral("now"));
        QCOMPARE(item.body, QStringLiteral("text"));
    }

    void rejects_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("HTML") << QByteArray("<html></html>");
        QTest::newRow("an array") << QByteArray("[]");
        QTest::newRow("an empty object") << QByteArray("{}");
        QTest::newRow("versions is an object") << json("{'versions':{}}");
        QTest::newRow("versions is a string") << json("{'versions':'0.3'}");
        QTest::newRow("versions is null") << json("{'versions':null,'news':[]}");
        QTest::newRow("cut") << good.chopped(1);
        QTest::newRow("a thousand deep") << nested(1000);
        QTest::newRow("deeper than the parser goes")
            << QByteArray("{\"versions\":" + nested(2000) + '}');
        QTest::newRow("a million deep") << nested(1'000'000);
    }

    void rejects()
    {
        QFETCH(QByteArray, document);
        VersionManager manager;
        QVERIFY(manager.parseManifest(good));
        QVERIFY(!manager.parseManifest(document));
        QCOMPARE(idsOf(manager), QStringList{QStringLiteral("0.3")});
        QCOMPARE(titlesOf(manager), QStringList{QStringLiteral("Hello")});
    }

    void accepts_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<QStringList>("ids");
        QTest::addColumn<QStringList>("titles");
        const auto a = QStringLiteral("a");
        const auto b = QStringLiteral("b");
        const QStringList none;
        QTest::newRow("empty versions") << json("{'versions':[]}") << none << none;
        QTest::newRow("order and repeated ids kept")
            << json("{'versions':[{'id':'b','url':'u'},{'id':'a','url':'u'},{'id':'b','url':'u'}]}")
            << QStringList{b, a, b} << none;
        QTest::newRow("without an id or an url")
            << json("{'versions':[{'url':'u'},{'id':'b'},{'id':'','url':'u'},{'id':'b','url':''},"
                    "{'id':'a','url':'u'}]}")
            << QStringList{a} << none;
        QTest::newRow("wrong types")
            << json("{'versions':[1,null,'x',[],{'id':5,'url':'u'},{'id':'b','url':['u']},"
                    "{'id':'a','url':'u','sha256':7,'released':{}}],'news':[1,{'title':4}]}")
            << QStringList{a} << none;
        QTest::newRow("news without a title")
            << json("{'versions':[],'news':[{'body':'x'},{'title':'','body':'x'},{'title':'a'}]}")
            << none << QStringList{a};
        QTest::newRow("news is an object")
            << json("{'versions':[],'news':{'title':'a'}}") << none << none;
        QTest::newRow("unknown keys")
            << json("{'versions':[{'id':'a','url':'u','x':1}],'launcher':5,'y':{}}")
            << QStringList{a} << none;
        QTest::newRow("an entry a thousand deep")
            << QByteArray("{\"versions\":" + nested(1000) + '}') << none << none;
    }

    void accepts()
    {
        QFETCH(QByteArray, document);
        QFETCH(QStringList, ids);
        QFETCH(QStringList, titles);
        VersionManager manager;
        QVERIFY(manager.parseManifest(good));
        QVERIFY(manager.parseManifest(document));
        QCOMPARE(idsOf(manager), ids);
        QCOMPARE(titlesOf(manager), titles);
        for (const GameVersion& v : manager.versions())
            QVERIFY(v.sha256.isEmpty() && v.released.isEmpty());
    }

    void fetchesAndCaches()
    {
        m_server->answer(path, HttpAnswer::json(good + "\n "));
        VersionManager manager;
        QCOMPARE(refreshed(manager), QStringLiteral("ready"));
        QCOMPARE(idsOf(manager), QStringList{QStringLiteral("0.3")});
        QCOMPARE(contentOf(manager.manifestCachePath()), QByteArray(good + "\n "));

        QCOMPARE(m_server->requests().size(), 1);
        const HttpRequest& request = m_server->requests().constFirst();
        QCOMPARE(request.method, QByteArray("GET"));
        QVERIFY(request.header("Authorization").isNull());
        QVERIFY(request.header("Content-Type").isNull());
    }

    void replacesALongerCache()
    {
        VersionManager manager;
        writeFile(manager.manifestCachePath(), QByteArray(100'000, ' '));
        m_server->answer(path, HttpAnswer::json(good));
        QCOMPARE(refreshed(manager), QStringLiteral("ready"));
        QCOMPARE(contentOf(manager.manifestCachePath()), good);
    }

    void followsRedirects()
    {
        m_server->answer(path, HttpAnswer::redirect(QStringLiteral("/elsewhere")));
        m_server->answer("/elsewhere", HttpAnswer::json(good));
        VersionManager manager;
        QCOMPARE(refreshed(manager), QStringLiteral("ready"));
    }

    void refusesTheRedirectToHttp()
    {
        m_server->answer("/plain", HttpAnswer::json(good));
        HttpServer secure(m_authority.serverFor({QStringLiteral("localhost")}));
        secure.answer(path, HttpAnswer::redirect(m_server->url(QStringLiteral("/plain"))));
        Settings::get().setManifestUrl(secure.url(QStringLiteral("/manifest.json")));
        VersionManager manager;
        QVERIFY(refreshed(manager).startsWith(u"failed: "));
        QCOMPARE(secure.requests().size(), 1);
        QVERIFY(m_server->requests().isEmpty());
    }

    void toleratesAnUnwritableCache_data()
    {
        QTest::addColumn<QString>("obstacle");
        QTest::newRow("the game directory is a file") << QString();
        QTest::newRow("the cache is a directory") << QStringLiteral("/versions_manifest.json/x");
    }

    void toleratesAnUnwritableCache()
    {
        QFETCH(QString, obstacle);
        writeFile(QString(Settings::get().gameDir() + obstacle), "in the way");
        m_server->answer(path, HttpAnswer::json(good));
        VersionManager manager;
        QCOMPARE(refreshed(manager), QStringLiteral("ready"));
        QCOMPARE(manager.versions().size(), 1);
    }

    void fallsBack_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QString>("text"); // somewhere in the message
        const auto row = [](const char* name, const HttpAnswer& answer, const QString& text) {
            QTest::newRow(name) << answer << text;
        };
        row("500 with HTML", HttpAnswer::htmlError(), QStringLiteral("server replied"));
        row("404 with a manifest", HttpAnswer::json(good, 404), QStringLiteral("server replied"));
        row("HTML", HttpAnswer::ok("<html></html>"), invalid);
        row("wrong types", HttpAnswer::json(json("{'versions':7}")), invalid);
        row("a thousand deep", HttpAnswer::json(nested(1000)), invalid);
        const QByteArray padded = good + QByteArray(50 * 1024 * 1024, ' ');
        row("50 MB", HttpAnswer::json(padded), QStringLiteral("The server sent more than 16 MB"));
        HttpAnswer answer = HttpAnswer::json(good);
        answer.cutAfter = 20;
        row("closes early", answer, QStringLiteral("closed"));
        answer = HttpAnswer::json(good);
        answer.announcedLength = good.size() + 1;
        row("announces too much", answer, QStringLiteral("closed"));
        answer.announcedLength = good.size() - 1;
        row("announces too little", answer, QString());
        answer = HttpAnswer::json(good);
        answer.framing = HttpAnswer::Framing::UntilClose;
        answer.cutAfter = 20;
        row("no length, closes early", answer, invalid);
        answer = HttpAnswer::ok(QByteArray(64 * 1024, ' '));
        answer.framing = HttpAnswer::Framing::UntilClose;
        answer.endless = true;
        row("endless", answer, QStringLiteral("The server sent more than 16 MB"));
        row("redirects in a circle", HttpAnswer::redirect(QStringLiteral("/manifest.json")),
            QStringLiteral("redirect"));
        row("redirects to a file", HttpAnswer::redirect(QStringLiteral("file:///etc/passwd")),
            QString());
    }

    void fallsBack()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QString, text);
        m_server->answer(path, answer);
        VersionManager manager;
        QVERIFY(manager.parseManifest(good));
        const QString outcome = refreshed(manager);
        QVERIFY2(outcome.startsWith(u"failed: ") && outcome.contains(text), qPrintable(outcome));
        QCOMPARE(idsOf(manager), QStringList{QStringLiteral("0.3")});
        QVERIFY(!QFileInfo::exists(manager.manifestCachePath()));

        writeFile(manager.manifestCachePath(), older);
        QCOMPARE(refreshed(manager), QStringLiteral("ready from cache"));
        QCOMPARE(idsOf(manager), QStringList{QStringLiteral("0.1")});
        QCOMPARE(contentOf(manager.manifestCachePath()), older);
    }

    void worksOffline()
    {
        m_server->goOffline();
        VersionManager manager;
        QCOMPARE(refreshed(manager), QStringLiteral("failed: Connection refused"));
        writeFile(manager.manifestCachePath(), older);
        QCOMPARE(refreshed(manager), QStringLiteral("ready from cache"));
    }

    void reportsUnusableAddresses_data()
    {
        QTest::addColumn<QString>("address");
        QTest::newRow("empty") << QString();
        QTest::newRow("no scheme") << QStringLiteral("tessellan");
        QTest::newRow("unknown scheme") << QStringLiteral("gopher://x/y");
        QTest::newRow("no URL at all") << QStringLiteral("http://[:::");
    }

    void reportsUnusableAddresses()
    {
        QFETCH(QString, address);
        Settings::get().setManifestUrl(address);
        VersionManager manager;
        const QString outcome = refreshed(manager);
        QVERIFY2(outcome.startsWith(u"failed: ") && outcome.size() > 8, qPrintable(outcome));
    }

    void reportsTheDownloadWhenTheCacheIsGarbage()
    {
        VersionManager manager;
        writeFile(manager.manifestCachePath(), "{\"versions\":");
        m_server->answer(path, HttpAnswer::ok("no manifest"));
        QCOMPARE(refreshed(manager), QString(u"failed: " + invalid));
        m_server->goOffline();
        QCOMPARE(refreshed(manager), QStringLiteral("failed: Connection refused"));
    }

    void staysSilentWhileTheServerStalls()
    {
        HttpAnswer answer = HttpAnswer::json(good);
        answer.stallAfter = 20;
        m_server->answer(path, answer);
        auto manager = std::make_unique<VersionManager>();
        QSignalSpy ready(manager.get(), &VersionManager::manifestReady);
        QSignalSpy failed(manager.get(), &VersionManager::manifestFailed);
        manager->refreshManifest();
        QTRY_COMPARE(m_server->requests().size(), 1);
        manager.reset();
        QCoreApplication::processEvents();
        QVERIFY(ready.isEmpty() && failed.isEmpty());
    }

    // Parsed in one go, like a download.
    void takesNoCacheOverTheLimit()
    {
        VersionManager manager;
        writeFile(manager.manifestCachePath(), QByteArray(16 * 1024 * 1024, ' ') + good);
        QCOMPARE(manager.parseManifest(contentOf(manager.manifestCachePath())), true);
        m_server->goOffline();
        QVERIFY(refreshed(manager).startsWith(u"failed: "));
    }

    void parsesBesideTheEventLoop_data()
    {
        QTest::addColumn<bool>("offline");
        QTest::newRow("downloaded") << false;
        QTest::newRow("kept") << true;
    }

    void parsesBesideTheEventLoop()
    {
        QFETCH(bool, offline);
        VersionManager manager;
        const QByteArray huge = manyShortEntries();
        if (offline)
            writeFile(manager.manifestCachePath(), huge);
        else
            m_server->answer("/manifest.json", HttpAnswer::json(huge));
        QSignalSpy ready(&manager, &VersionManager::manifestReady);
        Heartbeat heartbeat;
        manager.refreshManifest();
        QTRY_COMPARE_WITH_TIMEOUT(ready.size(), 1, 60'000);
        QCOMPARE(ready.first().first().toBool(), offline);
        QVERIFY(manager.versions().size() > 500'000);
        // On the same thread it is more than a second of work under sanitizers.
        QVERIFY2(heartbeat.longestProcessorMs() < 300 * Heartbeat::slowness,
                 qPrintable(QString::number(heartbeat.longestProcessorMs())));
    }

    void isDestroyedWhileItParses()
    {
        m_server->answer("/manifest.json", HttpAnswer::json(manyShortEntries().left(2'000'000)));
        for (int i = 0; i < 20; ++i) {
            auto manager = std::make_unique<VersionManager>();
            manager->refreshManifest();
            manager->refreshManifest();
            // Somewhere between the first byte and the signal.
            QTest::qWait(i * 10);
            manager.reset();
            QCoreApplication::processEvents();
        }
        QVERIFY(m_server->requestCount("/manifest.json") > 0);
    }

    // Too large to be read in a moment by whoever asks.
    void knowsTheInstalledJarsWhenItIsReady()
    {
        VersionManager manager;
        const QByteArray jar(4 * 1024 * 1024, 'j');
        QByteArray entries = "{'id':'right','url':'u','sha256':'%'},"
                             "{'id':'damaged','url':'u','sha256':'%'},"
                             "{'id':'missing','url':'u','sha256':'%'},"
                             "{'id':'unchecked','url':'u'}";
        entries.replace('%', VersionManager::sha256Hex(jar).toLatin1()).replace('\'', '"');
        writeFile(manager.jarPath(QStringLiteral("right")), jar);
        writeFile(manager.jarPath(QStringLiteral("damaged")), jar + 'x');
        writeFile(manager.jarPath(QStringLiteral("unchecked")), jar);
        m_server->answer(path, HttpAnswer::json("{\"versions\":[" + entries + "]}"));
        QList<std::optional<bool>> needs;
        connect(&manager, &VersionManager::manifestReady, this, [&] {
            for (const GameVersion& version : manager.versions())
                needs.append(manager.knownNeed(version));
        });
        manager.refreshManifest();
        QTRY_COMPARE(needs.size(), 4);
        QCOMPARE(needs, (QList<std::optional<bool>>{false, true, true, false}));
    }

    void waitsWithItsReadingWhileItIsHeld()
    {
        m_server->answer(path, HttpAnswer::json(good));
        VersionManager manager;
        QSignalSpy ready(&manager, &VersionManager::manifestReady);
        manager.holdReading();
        manager.refreshManifest();
        QTRY_COMPARE(m_server->requestCount(path), 1);
        QVERIFY(!ready.wait(200));
        QVERIFY(!QFile::exists(manager.manifestCachePath()));
        manager.resumeReading();
        QTRY_COMPARE(ready.size(), 1);
    }

    void waitsForNoPipeInTheCachesPlace()
    {
        VersionManager manager;
        QVERIFY(QDir().mkpath(QFileInfo(manager.manifestCachePath()).path()));
        QCOMPARE(mkfifo(QFile::encodeName(manager.manifestCachePath()).constData(), 0600), 0);
        QSignalSpy ready(&manager, &VersionManager::manifestReady);
        QSignalSpy failed(&manager, &VersionManager::manifestFailed);
        manager.refreshManifest();
        QTRY_COMPARE(failed.size(), 1);
        m_server->answer("/manifest.json", HttpAnswer::json(older));
        manager.refreshManifest();
        QTRY_COMPARE(ready.size(), 1);
    }

    void sendsARequestForEachCall()
    {
        m_server->answer(path, HttpAnswer::json(good));
        VersionManager manager;
        QSignalSpy ready(&manager, &VersionManager::manifestReady);
        manager.refreshManifest();
        manager.refreshManifest();
        QTRY_COMPARE(ready.size(), 2);
        QCOMPARE(m_server->requests().size(), 2);
    }

private:
    // The one outcome of one refresh, as a word.
    static QString refreshed(VersionManager& manager)
    {
        const QSignalSpy ready(&manager, &VersionManager::manifestReady);
        const QSignalSpy failed(&manager, &VersionManager::manifestFailed);
        manager.refreshManifest();
        const auto answered = [&ready, &failed] { return ready.size() + failed.size() > 0; };
        if (!QTest::qWaitFor(answered, 20'000))
            return QStringLiteral("no outcome");
        QCoreApplication::processEvents();
        if (ready.size() + failed.size() != 1)
            return QStringLiteral("several outcomes");
        if (!failed.isEmpty())
            return QString(u"failed: " + failed.constFirst().constFirst().toString());
        return ready.constFirst().constFirst().toBool() ? QStringLiteral("ready from cache")
                                                        : QStringLiteral("ready");
    }

    TestAuthority m_authority;
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<HttpServer> m_server;
};

QTEST_GUILESS_MAIN(TestManifest)
#include "tst_manifest.moc"
