#include "tests/support/installed_probe.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <csignal>
#include <memory>

#include <sys/resource.h>
#include <sys/stat.h>

namespace {

const QByteArray launcher("TessellanLauncher.exe");
const auto couldNotStage = QStringLiteral("updateFailed Could not stage full update");
const auto ready = QStringLiteral("updateReady");

void write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

mode_t modeOf(const QString& path)
{
    struct stat info = {};
    return lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

} // namespace

// Full archives, unpacked beside real copies of a program that updates itself.
class TestUpdateArchive : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init() { m_probe = std::make_unique<InstalledProbe>(); }
    void cleanup() { m_probe.reset(); }

    void replacesFilesAndSwapsTheLauncher()
    {
        write(path("libgame.so"), "old library");
        QFile mapped(path("libgame.so"));
        QVERIFY(mapped.open(QIODevice::ReadOnly));
        const QByteArray build = m_probe->newBuild();
        run(ZipBuilder()
                .directory("plugins")
                .file("plugins/platforms/libplug.so", "a plugin", 0755)
                .file("libgame.so", "new library")
                .file(launcher, build)
                .file("notes/läs mig.txt", "hej"));
        QCOMPARE(m_probe->lastLine(), ready);
        QCOMPARE(contentOf(path("libgame.so")), QByteArray("new library"));
        // A library in use is replaced, not overwritten.
        QCOMPARE(mapped.readAll(), QByteArray("old library"));
        QCOMPARE(contentOf(path("plugins/platforms/libplug.so")), QByteArray("a plugin"));
        QCOMPARE(modeOf(path("plugins/platforms/libplug.so")), mode_t{0755});
        QCOMPARE(contentOf(path("notes/läs mig.txt")), QByteArray("hej"));
        QVERIFY(!QFile::exists(path(launcher)));
        QCOMPARE(contentOf(m_probe->staged()), build);
        QVERIFY(m_probe->oldStands());

        QVERIFY(m_probe->end());
        QTRY_VERIFY(QFile::exists(m_probe->startedMark()));
        QVERIFY(m_probe->stands(build));
    }

    void knowsTheLauncherInAnyLetterCase()
    {
        run(ZipBuilder().file("tessellanLAUNCHER.EXE", m_probe->newBuild()));
        QCOMPARE(m_probe->lastLine(), ready);
        QCOMPARE(contentOf(m_probe->staged()), m_probe->newBuild());
    }

    void takesTheLastOfTwoLaunchers()
    {
        run(ZipBuilder().file(launcher, "first").file("tessellanlauncher.exe", "last"));
        QCOMPARE(m_probe->lastLine(), ready);
        QCOMPARE(contentOf(m_probe->staged()), QByteArray("last"));
    }

    void makesEmptyDirectories()
    {
        run(ZipBuilder().directory("one/two").file(launcher, m_probe->newBuild()));
        QCOMPARE(m_probe->lastLine(), ready);
        QVERIFY(QFileInfo(path("one/two")).isDir());
    }

    void keepsTheOwnersRights()
    {
        run(ZipBuilder()
                .directory(".", 0)
                .directory("locked", 0)
                .file("locked/file", "content", 04000)
                .file(launcher, m_probe->newBuild()));
        QCOMPARE(m_probe->lastLine(), ready);
        QCOMPARE(modeOf(m_probe->directory()) & 0700, mode_t{0700});
        QCOMPARE(modeOf(path("locked")) & 0700, mode_t{0700});
        QCOMPARE(modeOf(path("locked/file")), mode_t{0600});
    }

    void replacesALinkNotItsTarget()
    {
        write(outside("victim"), "precious");
        QVERIFY(QFile::link(outside("victim"), path("libgame.so")));
        run(ZipBuilder().file("libgame.so", "new library").file(launcher, m_probe->newBuild()));
        QCOMPARE(m_probe->lastLine(), ready);
        QCOMPARE(contentOf(outside("victim")), QByteArray("precious"));
        QCOMPARE(contentOf(path("libgame.so")), QByteArray("new library"));
    }

    void failsWithoutALauncher_data()
    {
        QTest::addColumn<QByteArray>("archive");
        const QByteArray good =
            ZipBuilder().file(launcher, QByteArray(1000, 'x')).file("file", "content").bytes();
        QTest::newRow("no entries") << ZipBuilder().bytes();
        QTest::newRow("not an archive") << QByteArray("a page of text, no archive at all");
        QTest::newRow("empty body") << QByteArray();
        QTest::newRow("cut in half") << good.left(good.size() / 2);
        QTest::newRow("end missing") << good.chopped(4);
        QTest::newRow("no launcher") << ZipBuilder().file("file", "content").bytes();
        QTest::newRow("empty launcher") << ZipBuilder().file(launcher, "").bytes();
        QTest::newRow("the last of two is empty")
            << ZipBuilder().file(launcher, "first").file(launcher, "").bytes();
        QTest::newRow("launcher is a directory") << ZipBuilder().directory(launcher).bytes();
        QTest::newRow("wrong checksum")
            << ZipBuilder().withWrongChecksums().file(launcher, "content").bytes();
        QTest::newRow("wrong checksum of a file")
            << ZipBuilder().file(launcher, "x").withWrongChecksums().file("file", "x").bytes();
    }

    void failsWithoutALauncher()
    {
        QFETCH(QByteArray, archive);
        run(archive);
        expectFailure();
    }

    void unpacksALauncherInASubdirectoryAndFails()
    {
        run(ZipBuilder().file("readme", "text").file("bin/" + launcher, m_probe->newBuild()));
        QCOMPARE(contentOf(path("readme")), QByteArray("text"));
        QCOMPARE(contentOf(path("bin/" + launcher)), m_probe->newBuild());
        expectFailure();
    }

    void refusesToLeaveTheDirectory_data()
    {
        QTest::addColumn<QByteArray>("archive");
        const auto row = [](const char* name, ZipBuilder builder) {
            QTest::newRow(name) << builder.file(launcher, "build").bytes();
        };
        row("parent directory", ZipBuilder().file("../stranger", "x"));
        row("climbing on the way", ZipBuilder().file("a/../../stranger", "x"));
        row("parent directory as an entry", ZipBuilder().directory("../stranger"));
        row("absolute", ZipBuilder().file("/tmp/tessellan-stranger", "x"));
        row("through a link that stands there", ZipBuilder().file("way/stranger", "x"));
        row("directory through a link", ZipBuilder().directory("way/stranger"));
        row("link to the outside", ZipBuilder().link("out", "../..").file("out/stranger", "x"));
        row("absolute link", ZipBuilder().link("out", "/tmp").file("out/stranger", "x"));
    }

    void refusesToLeaveTheDirectory()
    {
        QFETCH(QByteArray, archive);
        QVERIFY(QDir().mkdir(outside("elsewhere")));
        QVERIFY(QFile::link(outside("elsewhere"), path("way")));
        const QStringList before = QDir(m_probe->directory() + u"/..").entryList();
        run(archive);
        QCOMPARE(QDir(m_probe->directory() + u"/..").entryList(), before);
        QVERIFY(QDir(outside("elsewhere")).isEmpty());
        QVERIFY(!QFile::exists(QStringLiteral("/tmp/tessellan-stranger")));
        expectFailure();
    }

    // Names that an unpacking could use for itself belong to the archive, or to the user.
    void keepsFilesOfAnyName()
    {
        write(path("old.part"), "the user's");
        write(path("entry"), "the user's");
        run(ZipBuilder()
                .file("library.part", "one")
                .file("library", "other")
                .file("old", "new")
                .link("link.part", "library")
                .link("link", "old")
                .file(launcher, m_probe->newBuild()));
        QCOMPARE(m_probe->lastLine(), ready);
        QCOMPARE(contentOf(path("library.part")), QByteArray("one"));
        QCOMPARE(contentOf(path("library")), QByteArray("other"));
        QCOMPARE(contentOf(path("link.part")), QByteArray("other"));
        QCOMPARE(contentOf(path("old.part")), QByteArray("the user's"));
        QCOMPARE(contentOf(path("entry")), QByteArray("the user's"));
        QVERIFY(!QFile::exists(path(".tessellan-update")));
    }

    void neverFreezes()
    {
        ZipBuilder archive;
        for (int i = 0; i < 900; ++i)
            archive.file("lib/" + QByteArray::number(i), QByteArray(10'000, 'x'));
        archive.file("big", QByteArray(30'000'000, 'y')); // 1,000 entries at most
        run(archive.file(launcher, m_probe->newBuild()));
        QCOMPARE(m_probe->lastLine(), ready);
        QVERIFY2(m_probe->longestGapMs() <= 100,
                 qPrintable(QString::number(m_probe->longestGapMs())));
    }

    void refusesMoreThanALauncherHas()
    {
        ZipBuilder archive;
        for (int i = 0; i < 1'000; ++i)
            archive.directory("d");
        run(archive.file(launcher, m_probe->newBuild()));
        expectFailure();
    }

    void keepsTheOldFileOnAFullDisk()
    {
        write(path("libgame.so"), "old library");
        m_probe->process().setChildProcessModifier([] {
            const rlimit limit{100'000, 100'000};
            setrlimit(RLIMIT_FSIZE, &limit);
            signal(SIGXFSZ, SIG_IGN);
        });
        run(ZipBuilder().file(launcher, "build").file("libgame.so", QByteArray(300'000, 'x')));
        QCOMPARE(contentOf(path("libgame.so")), QByteArray("old library"));
        QCOMPARE(QDir(m_probe->directory()).entryList(QDir::Files | QDir::Hidden).size(), 2);
        expectFailure();
    }

    void failsWhenTheLauncherCannotBeStaged()
    {
        QVERIFY(QDir().mkpath(m_probe->staged() + u"/full"));
        run(ZipBuilder().file(launcher, m_probe->newBuild()));
        QCOMPARE(m_probe->lastLine(), couldNotStage);
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
    }

    void checksTheDigestFirst()
    {
        const QByteArray archive = ZipBuilder().file("file", "x").file(launcher, "build").bytes();
        run(archive, sha256Of("another"));
        QCOMPARE(m_probe->lastLine(),
                 QStringLiteral("updateFailed Checksum mismatch on launcher update"));
        QVERIFY(!QFile::exists(path("file")));
    }

private:
    QString path(const QByteArray& name) const
    {
        return QString(m_probe->directory() + u'/' + QFile::decodeName(name));
    }
    QString outside(const QByteArray& name) const
    {
        return QString(m_probe->temporaryDirectory() + u'/' + QFile::decodeName(name));
    }

    void run(const ZipBuilder& archive) { run(archive.bytes()); }
    void run(const QByteArray& archive) { run(archive, sha256Of(archive)); }
    void run(const QByteArray& archive, const QByteArray& sha256)
    {
        m_probe->server().answer("/archive", HttpAnswer::ok(archive));
        m_probe->run({QStringLiteral("archive"), m_probe->server().url(QStringLiteral("/archive")),
                      QString::fromLatin1(sha256)});
    }

    void expectFailure()
    {
        QCOMPARE(m_probe->lastLine(), couldNotStage);
        QVERIFY(!QFile::exists(m_probe->staged()));
        QVERIFY(!QFile::exists(m_probe->script()));
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
        QVERIFY(m_probe->oldStarts());
    }

    std::unique_ptr<InstalledProbe> m_probe;
};

QTEST_GUILESS_MAIN(TestUpdateArchive)
#include "tst_update_archive.moc"
