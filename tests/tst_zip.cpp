#include "services/zip.h"
#include "tests/support/files.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <clocale>
#include <csignal>
#include <filesystem>
#include <memory>

#include <sys/resource.h>
#include <sys/stat.h>

namespace {

constexpr int mega = 1024 * 1024;

// The mode bits of a file itself, not of what a link leads to; -1 when it is not there.
int modeOf(const QString& path)
{
    struct stat info = {};
    return lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : -1;
}

// Without the holes of a file that was given its size but not its content.
qint64 bytesOnDisk(const QString& path)
{
    struct stat info = {};
    return stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_blocks * 512LL : 0;
}

ZipBuilder smallArchive()
{
    ZipBuilder builder;
    builder.directory("top").file("top/tool", "#!/bin/sh\n", 0755).link("top/link", "tool");
    return builder;
}

} // namespace

class TestZip : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir().mkpath(destination()));
    }

    void cleanup()
    {
        // QTemporaryDir cannot remove names that are not UTF-8.
        std::filesystem::remove_all(destination().toStdString());
        // What a broken guard lets out is not to fail the tests ever after.
        QFile::remove(QStringLiteral("/tmp/evil"));
    }

    void restoresModeBits()
    {
        ZipBuilder builder;
        builder.directory("closed", 0555)
            .file("closed/tool", "x", 0755)
            .file("closed/secret", "x", 0600)
            .file("closed/open", "x", 0666);
        QVERIFY(extract(builder));
        QCOMPARE(modeOf(unpacked("closed")), 0555);
        QCOMPARE(modeOf(unpacked("closed/tool")), 0755);
        QCOMPARE(modeOf(unpacked("closed/secret")), 0600);
        QCOMPARE(modeOf(unpacked("closed/open")), 0666);
    }

    void dropsSetUserIdAndSticky()
    {
        QVERIFY(extract(ZipBuilder().file("root", "x", 06755).directory("d", 01777)));
        QCOMPARE(modeOf(unpacked("root")), 0755);
        QCOMPARE(modeOf(unpacked("d")), 0777);
    }

    void restoresLinks()
    {
        ZipBuilder builder;
        builder.file("a/b/file", "content").link("a/b/near", "file").link("a/b/far", "../../a/b");
        builder.link("a/b/roundabout", ".//../b/./file");
        QVERIFY(extract(builder));
        QCOMPARE(contentOf(unpacked("a/b/roundabout")), QByteArray("content"));
        QCOMPARE(QFile::symLinkTarget(unpacked("a/b/near")), unpacked("a/b/file"));
        QCOMPARE(contentOf(unpacked("a/b/far/near")), QByteArray("content"));
    }

    void returnsTheTopLevelNames()
    {
        ZipBuilder builder;
        builder.file("jdk/a", "").file("jdk/b", "").file("./readme", "").link("jre", "jdk");
        const auto names = extract(builder);
        QVERIFY(names);
        QCOMPARE(names->size(), 3);
        for (const char* name : {"jdk", "readme", "jre"})
            QVERIFY2(names->contains(QLatin1StringView(name)), name);
    }

    void unpacksEmptyFiles()
    {
        QVERIFY(extract(ZipBuilder().file("empty", "")));
        QVERIFY(QFile::exists(unpacked("empty")));
    }

    void readsWhatARealArchiverPacks()
    {
        writeFile(inHome("real/jdk/bin/java"), QByteArray(3 * mega, 'j'));
        QFile::setPermissions(inHome("real/jdk/bin/java"), QFile::ReadOwner | QFile::ExeOwner);
        QVERIFY(QFile::link(QStringLiteral("bin/java"), inHome("real/jdk/java")));
        QCOMPARE(QProcess::execute(QStringLiteral("bsdtar"),
                                   {QStringLiteral("-C"), inHome("real"), QStringLiteral("-a"),
                                    QStringLiteral("-cf"), archive(), QStringLiteral("jdk")}),
                 0);
        QVERIFY(zip::extract(ArchiveSource::file(archive()), destination()));
        QCOMPARE(modeOf(unpacked("jdk/bin/java")), 0500);
        QCOMPARE(contentOf(unpacked("jdk/java")), QByteArray(3 * mega, 'j'));
    }

    void keepsNonAsciiNames()
    {
        ZipBuilder builder;
        builder.file("\xc3\xbcml\xc3\xa4ut", "utf-8")
            .file("\xfcml\xe4ut", "latin-1", 0644, ZipBuilder::Names::Unmarked)
            .link("l\xc3\xafnk", "\xc3\xbcml\xc3\xa4ut");
        QVERIFY(extract(builder));
        const QByteArray root = QFile::encodeName(destination());
        for (const char* name : {"/\xc3\xbcml\xc3\xa4ut", "/\xfcml\xe4ut", "/l\xc3\xafnk"}) {
            struct stat info = {};
            QVERIFY2(stat(QByteArray(root + name).constData(), &info) == 0, name);
        }
    }

    // Qt moves the process to a UTF-8 locale; the second half asks without that help.
    void keepsNonAsciiNamesInTheCLocale()
    {
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath(),
                    {QStringLiteral("keepsNonAsciiNames")});
        QVERIFY(child.waitForFinished());
        QVERIFY2(child.exitCode() == 0, child.readAllStandardOutput().constData());

        const QByteArray before = setlocale(LC_ALL, nullptr);
        QVERIFY(setlocale(LC_ALL, "C"));
        keepsNonAsciiNames();
        setlocale(LC_ALL, before.constData());
    }

    void unpacksOverAnEarlierAttempt()
    {
        QVERIFY(extract(smallArchive()));
        writeFile(unpacked("top/tool"),
                  "what an interrupted run left, longer than the new content");
        QVERIFY(extract(smallArchive()));
        QCOMPARE(contentOf(unpacked("top/tool")), QByteArray("#!/bin/sh\n"));
        QCOMPARE(modeOf(unpacked("top/tool")), 0755);
    }

    void followsALinkToTheDestination()
    {
        QVERIFY(QFile::link(destination(), inHome("alias")));
        QVERIFY(smallArchive().write(archive()));
        QVERIFY(zip::extract(ArchiveSource::file(archive()), inHome("alias")));
        QVERIFY(QFile::exists(unpacked("top/tool")));
    }

    void refusesEntriesThatLeaveTheDirectory_data()
    {
        QTest::addColumn<ZipBuilder>("builder");
        QTest::newRow("climbs") << ZipBuilder().file("../evil", "x");
        QTest::newRow("climbs later") << ZipBuilder().file("a/../../evil", "x");
        QTest::newRow("climbs and comes back") << ZipBuilder().file("../inside/evil", "x");
        QTest::newRow("is the parent") << ZipBuilder().directory("..");
        QTest::newRow("absolute") << ZipBuilder().file("/tmp/evil", "x");
        QTest::newRow("nameless") << ZipBuilder().file("", "x");
        QTest::newRow("link to an absolute place") << ZipBuilder().link("evil", "/etc/passwd");
        QTest::newRow("link to the parent") << ZipBuilder().link("evil", "..");
        QTest::newRow("link above its depth") << ZipBuilder().link("a/evil", "../../home");
        QTest::newRow("link that climbs late") << ZipBuilder().link("evil", "a/../../home");
        QTest::newRow("link to nothing") << ZipBuilder().link("evil", "");
        QTest::newRow("file through a link") << ZipBuilder().link("l", ".").file("l/evil", "x");
        QTest::newRow("link through a link")
            << ZipBuilder().directory("d").link("l", "d").link("l/evil", "..");
        QTest::newRow("chain of links")
            << ZipBuilder().link("d/up", "..").link("evil", "d/up/..").file("evil/x", "x");
        QTest::newRow("chain of links from its own depth")
            << ZipBuilder().link("d/up", "..").link("d/evil", "up/..");
        QTest::newRow("link in place of a directory")
            << ZipBuilder().directory("d").link("d", "..").file("d/evil", "x");
        QTest::newRow("file through a link in place of a directory")
            << ZipBuilder().directory("d").link("d", ".").file("d/evil", "x");
        QTest::newRow("device") << ZipBuilder().special("evil", S_IFCHR | 0666);
        QTest::newRow("socket") << ZipBuilder().special("evil", S_IFSOCK | 0666);
    }

    void refusesEntriesThatLeaveTheDirectory()
    {
        QFETCH(ZipBuilder, builder);
        QVERIFY(!extract(builder));
        assertNothingOutside();
        QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/evil")));
        QVERIFY(!QFileInfo(unpacked("evil")).isSymLink());
        QCOMPARE(modeOf(unpacked("evil")), -1);
    }

    void refusesEveryCut()
    {
        const QByteArray whole = smallArchive().bytes();
        for (qsizetype size = 0; size < whole.size(); ++size) {
            writeFile(archive(), whole.left(size));
            QVERIFY2(!zip::extract(ArchiveSource::file(archive()), destination()),
                     qPrintable(QStringLiteral("cut after %1 bytes").arg(size)));
        }
        assertNothingOutside();
    }

    // Whatever a damaged byte makes of it, nothing lands outside and nothing breaks.
    void survivesEveryDamagedByte()
    {
        const QByteArray whole = smallArchive().bytes();
        int refused = 0;
        for (qsizetype at = 0; at < whole.size(); ++at) {
            QByteArray damaged = whole;
            damaged[at] = static_cast<char>(damaged[at] ^ (at % 2 == 0 ? '\x2e' : '\x81'));
            writeFile(archive(), damaged);
            refused += zip::extract(ArchiveSource::file(archive()), destination()) ? 0 : 1;
        }
        QVERIFY(refused > 0);
        assertNothingOutside();
    }

    void refusesWhatIsNoZip_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("HTML") << QByteArray("<html><body>Not today</body></html>");
        QTest::newRow("zeros") << QByteArray(mega, '\0');
        QTest::newRow("gzip") << QByteArray("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\x03\x00", 12);
        QTest::newRow("tar") << QByteArray(QByteArray("jdk/").leftJustified(10240, '\0'));
    }

    void refusesWhatIsNoZip()
    {
        QFETCH(QByteArray, content);
        writeFile(archive(), content);
        QVERIFY(!zip::extract(ArchiveSource::file(archive()), destination()));
        QVERIFY(namesIn(destination()).isEmpty());
    }

    void refusesWrongChecksums()
    {
        QVERIFY(!extract(ZipBuilder().withWrongChecksums().file("file", "content")));
    }

    void refusesBombs()
    {
        ZipBuilder bomb;
        bomb.file("zeros", QByteArray(70 * mega, '\0'));
        QVERIFY(bomb.bytes().size() < mega / 10);
        QVERIFY(!extract(bomb));
        QVERIFY(bytesOnDisk(unpacked("zeros")) <= 65LL * mega);
    }

    void refusesMoreEntriesThanAnHonestArchiveHas()
    {
        ZipBuilder builder;
        for (int i = 0; i <= 100'000; ++i)
            builder.directory("d");
        QVERIFY(!extract(builder));
    }

    void acceptsSmallFilesThatPackWell()
    {
        QVERIFY(extract(ZipBuilder().file("zeros", QByteArray(10 * mega, '\0'))));
        QCOMPARE(QFileInfo(unpacked("zeros")).size(), 10LL * mega);
    }

    void stopsWhenCancelled()
    {
        QVERIFY(ZipBuilder().file("first", "x").file("second", "x").write(archive()));
        const auto cancelled = [this] { return QFileInfo(unpacked("first")).size() > 0; };
        QVERIFY(!zip::extract(ArchiveSource::file(archive()), destination(), cancelled));
        QCOMPARE(namesIn(destination()), QStringList{QStringLiteral("first")});
    }

    void stopsWithinAFileWhenCancelled()
    {
        QVERIFY(ZipBuilder().file("long", QByteArray(8 * mega, 'x')).write(archive()));
        const auto cancelled = [this] { return QFileInfo(unpacked("long")).size() > 0; };
        QVERIFY(!zip::extract(ArchiveSource::file(archive()), destination(), cancelled));
        QVERIFY(QFileInfo(unpacked("long")).size() > 0);
        QVERIFY(bytesOnDisk(unpacked("long")) < 8LL * mega);
    }

    // A file-size limit of the process stands for the full disk: write() fails half-way.
    void reportsAFullDisk()
    {
        QVERIFY(ZipBuilder().file("big", QByteArray(4 * mega, 'x')).write(archive()));
        const auto previous = std::signal(SIGXFSZ, SIG_IGN);
        rlimit before = {};
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit tight = {mega, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tight);
        const auto names = zip::extract(ArchiveSource::file(archive()), destination());
        setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, previous);
        QVERIFY(!names);
    }

    void refusesMissingPlaces()
    {
        QVERIFY(!zip::extract(ArchiveSource::file(inHome("missing.zip")), destination()));
        QVERIFY(smallArchive().write(archive()));
        QVERIFY(!zip::extract(ArchiveSource::file(archive()), inHome("missing")));
        QVERIFY(!QFileInfo::exists(inHome("missing")));
    }

private:
    QString inHome(const char* name) const { return m_home->filePath(QString::fromUtf8(name)); }
    QString archive() const { return inHome("archive.zip"); }
    QString destination() const { return inHome("inside"); }
    QString unpacked(const char* name) const
    {
        return QString(destination() + u'/' + QString::fromUtf8(name));
    }

    std::optional<QStringList> extract(const ZipBuilder& builder) const
    {
        return builder.write(archive())
                   ? zip::extract(ArchiveSource::file(archive()), destination())
                   : std::nullopt;
    }

    void assertNothingOutside() const
    {
        const QStringList expected{QStringLiteral("archive.zip"), QStringLiteral("inside")};
        QCOMPARE(namesIn(m_home->path()), expected);
    }

    std::unique_ptr<QTemporaryDir> m_home;
};

QTEST_GUILESS_MAIN(TestZip)
#include "tst_zip.moc"
