#include "app/settings.h"
#include "tests/support/files.h"
#include "tests/support/gzip.h"
#include "tests/support/http_server.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/tls.h"
#include "tests/support/zip_builder.h"
#include "versions/version_manager.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>

#include <sys/resource.h>

namespace {

constexpr int mega = 1024 * 1024;
const QByteArray body = "the new jar";

QString digestOf(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

} // namespace

class TestVersionInstall : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void initTestCase() { m_authority.trust(); }

    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        Settings::get().setGameDir(m_home->filePath(QStringLiteral("game")));
        m_server = std::make_unique<HttpServer>();
        m_manager = std::make_unique<VersionManager>();
        m_version = {QStringLiteral("0.3"), m_server->url(QStringLiteral("/a.jar")), digestOf(body),
                     QString()};
        m_server->answer("/a.jar", HttpAnswer::ok(body));
    }

    void placesJars_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("path");
        QTest::newRow("plain") << QStringLiteral("0.3")
                               << QStringLiteral("/%2/versions/0.3/tessellan-0.3.jar");
        QTest::newRow("slash") << QStringLiteral("a/b")
                               << QStringLiteral("/%2/versions/a/b/tessellan-a/b.jar");
        QTest::newRow("place markers")
            << QStringLiteral("%1%2") << QStringLiteral("/%2/versions/%1%2/tessellan-%1%2.jar");
    }

    void placesJars()
    {
        QFETCH(QString, id);
        QFETCH(QString, path);
        Settings::get().setGameDir(QStringLiteral("/%2"));
        QCOMPARE(m_manager->jarPath(id), path);
    }

    void writesDigestsInLowerCase()
    {
        QCOMPARE(VersionManager::sha256Hex("abc"),
                 QStringLiteral("ba7816bf8f01cfea414140de5dae2223"
                                "b00361a396177a9cb410ff61f20015ad"));
    }

    void knowsWhatNeedsInstalling_data()
    {
        QTest::addColumn<QByteArray>("onDisk"); // null: no file
        QTest::addColumn<QString>("digest");
        QTest::addColumn<bool>("installed");
        QTest::addColumn<bool>("needed");
        const QString digest = digestOf(body);
        QTest::newRow("missing") << QByteArray() << digest << false << true;
        QTest::newRow("missing, no digest") << QByteArray() << QString() << false << true;
        QTest::newRow("right") << body << digest << true << false;
        QTest::newRow("right, upper case") << body << digest.toUpper() << true << false;
        QTest::newRow("corrupt") << QByteArray("x") << digest << true << true;
        QTest::newRow("corrupt, no digest") << QByteArray("x") << QString() << true << false;
        QTest::newRow("empty") << QByteArray("") << digest << true << true;
        QTest::newRow("digest is no digest") << body << QStringLiteral("abc") << true << true;
    }

    void knowsWhatNeedsInstalling()
    {
        QFETCH(QByteArray, onDisk);
        QFETCH(QString, digest);
        QFETCH(bool, installed);
        QFETCH(bool, needed);
        if (!onDisk.isNull())
            writeFile(jar(), onDisk);
        m_version.sha256 = digest;
        QCOMPARE(m_manager->isInstalled(m_version.id), installed);
        QCOMPARE(m_manager->needsInstall(m_version), needed);
        QCOMPARE(m_manager->needsInstall(m_version), needed);
    }

    void needsInstallingOverWhatCannotBeRead()
    {
        QVERIFY(QDir().mkpath(jar()));
        QVERIFY(m_manager->needsInstall(m_version));
    }

    void installs()
    {
        QCOMPARE(installed(), QStringLiteral("finished 0.3"));
        QCOMPARE(contentOf(jar()), body);
        QVERIFY(!m_manager->needsInstall(m_version));
        QCOMPARE(namesIn(QFileInfo(jar()).path()),
                 QStringList{QStringLiteral("tessellan-0.3.jar")});
        QCOMPARE(m_server->requests().size(), 1);
        const HttpRequest& request = m_server->requests().constFirst();
        QCOMPARE(request.method, QByteArray("GET"));
        QVERIFY(request.header("Authorization").isNull());
    }

    // Who hears of it may start the game at once.
    void reportsWhenTheJarIsWhole()
    {
        QByteArray seen;
        connect(m_manager.get(), &VersionManager::installFinished, this,
                [this, &seen] { seen = contentOf(jar()); });
        QCOMPARE(installed(), QStringLiteral("finished 0.3"));
        QCOMPARE(seen, body);
    }

    void takesAnUpperCaseDigest()
    {
        m_version.sha256 = digestOf(body).toUpper();
        QCOMPARE(installed(), QStringLiteral("finished 0.3"));
    }

    void takesAnythingWithoutADigest()
    {
        m_version.sha256.clear();
        m_server->answer("/a.jar", HttpAnswer::ok(QByteArray()));
        QCOMPARE(installed(), QStringLiteral("finished 0.3"));
        QVERIFY(QFile::exists(jar()));
        QCOMPARE(QFileInfo(jar()).size(), 0);
    }

    // A compressed body that was cut looks whole to the network layer: with a digest or as a ZIP
    // the jar itself tells.
    void takesCompressedJarsThatAreWhole_data()
    {
        QTest::addColumn<QByteArray>("jar");
        QTest::addColumn<bool>("hasDigest");
        QTest::addColumn<int>("missing");
        QTest::addColumn<bool>("isTaken");
        const QByteArray zip =
            ZipBuilder().file("META-INF/MANIFEST.MF", QByteArray(3000, 'x')).bytes();
        QTest::newRow("a ZIP without a digest") << zip << false << 0 << true;
        QTest::newRow("a ZIP without a digest, cut") << zip << false << 40 << false;
        QTest::newRow("anything with its digest") << body << true << 0 << true;
        QTest::newRow("anything with its digest, cut") << body << true << 12 << false;
        QTest::newRow("anything without a digest, cut") << body << false << 12 << false;
    }

    void takesCompressedJarsThatAreWhole()
    {
        QFETCH(QByteArray, jar);
        QFETCH(bool, hasDigest);
        QFETCH(int, missing);
        QFETCH(bool, isTaken);
        const QByteArray packed = gzip(jar);
        HttpAnswer answer = HttpAnswer::ok(packed.chopped(missing));
        answer.addHeader("Content-Encoding", "gzip");
        answer.announcedLength = packed.size();
        m_server->answer("/a.jar", answer);
        m_version.sha256 = hasDigest ? digestOf(jar) : QString();
        QSignalSpy finished(m_manager.get(), &VersionManager::installFinished);
        QSignalSpy failed(m_manager.get(), &VersionManager::installFailed);
        m_manager->install(m_version);
        QTRY_COMPARE(finished.size() + failed.size(), 1);
        QCOMPARE(finished.size(), isTaken ? 1 : 0);
        QCOMPARE(contentOf(m_manager->jarPath(m_version.id)), isTaken ? jar : QByteArray());
    }

    void makesNestedDirectories()
    {
        m_version.id = QStringLiteral("a/b");
        QCOMPARE(installed(), QStringLiteral("finished a/b"));
        QCOMPARE(contentOf(QString(Settings::get().gameDir() + u"/versions/a/b/tessellan-a/b.jar")),
                 body);
    }

    void replacesALongerJar()
    {
        writeFile(jar(), QByteArray(1000, 'x'));
        QCOMPARE(installed(), QStringLiteral("finished 0.3"));
        QCOMPARE(contentOf(jar()), body);
    }

    void keepsOldJarWhenDigestDiffers()
    {
        writeFile(jar(), "old");
        m_server->answer("/a.jar", HttpAnswer::ok("the new jaR"));
        QCOMPARE(installed(), QStringLiteral("Checksum mismatch — download corrupted"));
        QCOMPARE(contentOf(jar()), QByteArray("old"));
    }

    void writesNothingWhenDigestDiffers()
    {
        m_server->answer("/a.jar", HttpAnswer::ok(QByteArray()));
        QCOMPARE(installed(), QStringLiteral("Checksum mismatch — download corrupted"));
        QVERIFY(!QFileInfo::exists(Settings::get().gameDir()));
    }

    void reportsFailedDownloads_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QString>("text"); // somewhere in the message
        QTest::newRow("500 with HTML")
            << HttpAnswer::htmlError() << QStringLiteral("server replied");
        HttpAnswer answer = HttpAnswer::ok(body);
        answer.cutAfter = 4;
        QTest::newRow("closes early") << answer << QStringLiteral("closed");
        answer = HttpAnswer::ok(body);
        answer.announcedLength = body.size() + 1;
        QTest::newRow("announces too much") << answer << QStringLiteral("closed");
        answer = HttpAnswer::ok(body);
        answer.status = 206;
        QTest::newRow("a part") << answer << QStringLiteral("only a part");
        answer.announcedLength = 2LL * 1024 * mega;
        answer.stallAfter = 4;
        QTest::newRow("two gigabytes") << answer << QStringLiteral("more than 1024 MB");
    }

    // Without a digest nothing but the network layer can notice.
    void reportsFailedDownloads()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QString, text);
        writeFile(jar(), "old");
        m_server->answer("/a.jar", answer);
        m_version.sha256.clear();
        const QString outcome = installed();
        QVERIFY2(outcome.contains(text), qPrintable(outcome));
        QCOMPARE(contentOf(jar()), QByteArray("old"));
    }

    void reportsAnOutage()
    {
        m_server->goOffline();
        QCOMPARE(installed(), QStringLiteral("Connection refused"));
        QVERIFY(!QFile::exists(jar()));
    }

    void refusesTheRedirectToHttp()
    {
        HttpServer secure(m_authority.serverFor({QStringLiteral("localhost")}));
        secure.answer("/a.jar", HttpAnswer::redirect(m_version.url));
        m_version.url = secure.url(QStringLiteral("/a.jar"));
        m_version.sha256.clear();
        QVERIFY(!installed().startsWith(u"finished"));
        QCOMPARE(secure.requests().size(), 1);
        QVERIFY(m_server->requests().isEmpty());
        QVERIFY(!QFile::exists(jar()));
    }

    void reportsAnUnwritablePlace_data()
    {
        QTest::addColumn<QString>("obstacle");
        QTest::newRow("the game directory is a file") << QString();
        QTest::newRow("the versions are a file") << QStringLiteral("/versions");
        QTest::newRow("the jar is a directory")
            << QStringLiteral("/versions/0.3/tessellan-0.3.jar/x");
    }

    void reportsAnUnwritablePlace()
    {
        QFETCH(QString, obstacle);
        writeFile(QString(Settings::get().gameDir() + obstacle), "in the way");
        QCOMPARE(installed(), QString(u"Cannot write " + jar()));
    }

    // What the system would see is a file of the player's, before the NUL.
    void overwritesNothingBeforeANul()
    {
        const QString mine = m_home->filePath(QStringLiteral("mine"));
        writeFile(mine, "mine");
        QDir().mkpath(QString(Settings::get().gameDir() + u"/versions"));
        m_version.id = QString(u"../../mine" + QString(QChar::Null));
        m_version.sha256.clear();
        QVERIFY(!m_manager->isInstalled(m_version.id));
        QVERIFY(m_manager->needsInstall(m_version));
        QCOMPARE(installed(), QString(u"Cannot write " + jar()));
        QCOMPARE(contentOf(mine), "mine");
    }

    void survivesOddNames_data()
    {
        QTest::addColumn<QString>("directory"); // below the home, unless it is absolute
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("possible");
        const auto game = QStringLiteral("game");
        const QString nul(QChar::Null);
        QTest::newRow("NUL in the version") << game << QString(u"a" + nul + u"b") << false;
        QTest::newRow("NUL in the directory")
            << QString(u"a" + nul + u"b") << QStringLiteral("1") << false;
        QTest::newRow("a version too long") << game << QString(300, u'x') << false;
        QTest::newRow("a version of a megabyte") << game << QString(1024 * 1024, u'/') << false;
        QTest::newRow("line breaks") << game << QStringLiteral("a\n\rb") << true;
        QTest::newRow("half a character") << game << QString(QChar(0xd800)) << true;
        QTest::newRow("blanks") << QStringLiteral("  ") << QStringLiteral(" ") << true;
        QTest::newRow("no device") << QStringLiteral("/dev/null") << QStringLiteral("1") << false;
    }

    void survivesOddNames()
    {
        QFETCH(QString, directory);
        QFETCH(QString, id);
        QFETCH(bool, possible);
        Settings::get().setGameDir(QDir(m_home->path()).absoluteFilePath(directory));
        m_version.id = id;
        QVERIFY(m_manager->needsInstall(m_version));
        QCOMPARE(installed(), possible ? QString(u"finished " + id)
                                       : QString(u"Cannot write " + m_manager->jarPath(id)));
        QCOMPARE(m_manager->needsInstall(m_version), !possible);
        QCOMPARE(m_manager->isInstalled(id), possible);
    }

    // A file-size limit of the process stands for the full disk.
    void reportsAShortWriteAsFinished()
    {
        const QByteArray big(2 * mega, 'j');
        m_version.sha256 = digestOf(big);
        m_server->answer("/a.jar", HttpAnswer::ok(big));
        const auto previous = std::signal(SIGXFSZ, SIG_IGN);
        rlimit before = {};
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit tight = {mega, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tight);
        const QString outcome = installed();
        setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, previous);
        QCOMPARE(outcome, QStringLiteral("finished 0.3"));
        QVERIFY(QFileInfo(jar()).size() < big.size());
        QVERIFY(m_manager->needsInstall(m_version));
    }

    void keepsItsOwnCopyOfTheVersion()
    {
        const QSignalSpy finished(m_manager.get(), &VersionManager::installFinished);
        m_manager->install(m_version);
        m_version = {};
        QTRY_COMPARE(finished.size(), 1);
        QCOMPARE(finished.constFirst().constFirst().toString(), QStringLiteral("0.3"));
    }

    void answersEveryInstall()
    {
        const QSignalSpy finished(m_manager.get(), &VersionManager::installFinished);
        m_manager->install(m_version);
        m_manager->install(m_version);
        QTRY_COMPARE(finished.size(), 2);
        QCOMPARE(m_server->requests().size(), 2);
    }

    void forwardsTheProgress()
    {
        const QSignalSpy progress(m_manager.get(), &VersionManager::downloadProgress);
        QCOMPARE(installed(), QStringLiteral("finished 0.3"));
        const QVariantList whole{qint64{body.size()}, qint64{body.size()}};
        QVERIFY(!progress.isEmpty());
        QCOMPARE(progress.constLast(), whole);
    }

    void forwardsUnknownLengths()
    {
        HttpAnswer answer = HttpAnswer::ok(QByteArray(4096, 'x'));
        answer.framing = HttpAnswer::Framing::UntilClose;
        answer.endless = true;
        m_server->answer("/a.jar", answer);
        const QSignalSpy progress(m_manager.get(), &VersionManager::downloadProgress);
        m_manager->install(m_version);
        QTRY_VERIFY(!progress.isEmpty());
        QCOMPARE(progress.constFirst().constLast().toLongLong(), -1);
        m_manager.reset();
    }

    void canBeDestroyedWhileTheServerStalls()
    {
        HttpAnswer answer = HttpAnswer::ok(body);
        answer.stallAfter = 4;
        m_server->answer("/a.jar", answer);
        const QSignalSpy failed(m_manager.get(), &VersionManager::installFailed);
        m_manager->install(m_version);
        QTRY_COMPARE(m_server->requests().size(), 1);
        m_manager.reset();
        QCoreApplication::processEvents();
        QVERIFY(failed.isEmpty());
        QVERIFY(!QFileInfo::exists(Settings::get().gameDir()));
    }

private:
    QString jar() const { return m_manager->jarPath(m_version.id); }

    // The one outcome of one install: "finished <id>" or the message.
    QString installed()
    {
        const QSignalSpy finished(m_manager.get(), &VersionManager::installFinished);
        const QSignalSpy failed(m_manager.get(), &VersionManager::installFailed);
        m_manager->install(m_version);
        const auto answered = [&finished, &failed] { return finished.size() + failed.size() > 0; };
        if (!QTest::qWaitFor(answered, 20'000))
            return QStringLiteral("no outcome");
        QCoreApplication::processEvents();
        if (finished.size() + failed.size() != 1)
            return QStringLiteral("several outcomes");
        if (!failed.isEmpty())
            return failed.constFirst().constFirst().toString();
        return QString(u"finished " + finished.constFirst().constFirst().toString());
    }

    TestAuthority m_authority;
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<VersionManager> m_manager;
    GameVersion m_version;
};

QTEST_GUILESS_MAIN(TestVersionInstall)
#include "tst_version_install.moc"
