#include "tests/support/installed_probe.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QTest>

#include <cstdio>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qsizetype severalSlices = 5 * 512 * 1024;
const auto couldNotStage = QStringLiteral("updateFailed Could not stage update");
const auto ready = QStringLiteral("updateReady 1.0.17");

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

// Real copies of a program that updates itself, real scripts, real swaps.
class TestUpdateStaging : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init() { m_probe = std::make_unique<InstalledProbe>(); }
    void cleanup() { m_probe.reset(); }

    void swapsWhenTheLauncherHasEnded()
    {
        const QByteArray build = m_probe->newBuild(severalSlices);
        m_probe->offer(build);
        m_probe->run();
        QCOMPARE(m_probe->lines(), (QStringList{QStringLiteral("system's Qt"),
                                                QStringLiteral("updateAvailable 1.0.17"), ready}));
        QVERIFY(m_probe->oldStands());
        QCOMPARE(contentOf(m_probe->staged()), build);
        QCOMPARE(modeOf(m_probe->staged()) & 0111, mode_t{0});
        QVERIFY(!QFile::exists(m_probe->startedMark()));

        QVERIFY(m_probe->end());
        QTRY_COMPARE(contentOf(m_probe->startedMark()), QByteArray("started\n"));
        QTRY_VERIFY(m_probe->nothingIsStaged());
        QVERIFY(m_probe->stands(build));
        // As the launcher was: readable for everybody whom the mask does not exclude.
        const mode_t mask = umask(0);
        umask(mask);
        QCOMPARE(modeOf(m_probe->exe()), static_cast<mode_t>(0777 & ~mask));
    }

    void knowsWhetherItBringsItsOwnQt()
    {
        const QString library = QStringLiteral("/libQt6Core.so.6");
        QVERIFY(QFile::link(QString(QLibraryInfo::path(QLibraryInfo::LibrariesPath) + library),
                            QString(m_probe->directory() + library)));
        m_probe->server().goOffline();
        m_probe->run();
        QCOMPARE(m_probe->lines(),
                 (QStringList{QStringLiteral("own Qt"), QStringLiteral("upToDate")}));
    }

    void writesTheScriptAsAgreed()
    {
        m_probe->offer(m_probe->newBuild());
        m_probe->run();
        const QByteArray text = "#!/bin/sh\n"
                                "while kill -0 %1 2>/dev/null; do sleep 0.5; done\n"
                                "mv '%2' '%3' || exit 1\n"
                                "chmod +x '%3'\n"
                                "'%3' &\n"
                                "rm -f \"$0\"\n";
        QCOMPARE(text.size(), 114);
        QByteArray expected = text;
        expected.replace("%1", QByteArray::number(m_probe->process().processId()))
            .replace("%2", QFile::encodeName(m_probe->staged()))
            .replace("%3", QFile::encodeName(m_probe->exe()));
        QCOMPARE(contentOf(m_probe->script()), expected);
        QCOMPARE(modeOf(m_probe->script()), mode_t{0700});
    }

    void takesTheDigestInUpperCase()
    {
        const QByteArray build = m_probe->newBuild();
        m_probe->offer(HttpAnswer::ok(build), QStringLiteral("1.0.17"), sha256Of(build).toUpper());
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), ready);
    }

    void takesABuildWithoutDigest()
    {
        const QByteArray build = m_probe->newBuild();
        m_probe->offer(HttpAnswer::ok(build), QStringLiteral("1.0.17"), {});
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), ready);
        QCOMPARE(contentOf(m_probe->staged()), build);
    }

    void leavesNothingWhenTheDownloadIsBad_data()
    {
        QTest::addColumn<bool>("cut");
        QTest::newRow("another digest") << false;
        QTest::newRow("cut short, without digest") << true;
    }

    void leavesNothingWhenTheDownloadIsBad()
    {
        QFETCH(bool, cut);
        HttpAnswer answer = HttpAnswer::ok(m_probe->newBuild());
        if (cut)
            answer.cutAfter = 10;
        m_probe->offer(answer, QStringLiteral("1.0.17"), cut ? QByteArray() : sha256Of("another"));
        m_probe->run();
        QVERIFY(m_probe->lastLine().startsWith(u"updateFailed "));
        QVERIFY(m_probe->nothingIsStaged());
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
    }

    void refusesAnEmptyBuild()
    {
        m_probe->offer("");
        m_probe->run();
        expectFailedStaging();
    }

    void swapsInAnyDirectory_data()
    {
        QTest::addColumn<QString>("directory");
        QTest::newRow("spaces") << QStringLiteral("my games and more");
        QTest::newRow("non-ASCII letters") << QStringLiteral("Spiele für Änne 遊戯");
        QTest::newRow("place markers") << QStringLiteral("%1 %2 %3 %%");
        QTest::newRow("shell characters") << QStringLiteral("$(touch x) `id` \"$HOME\" & ; | > \\");
        QTest::newRow("line break") << QStringLiteral("a\nb");
        QTest::newRow("leading dash") << QStringLiteral("-rf");
    }

    void swapsInAnyDirectory()
    {
        QFETCH(QString, directory);
        m_probe = std::make_unique<InstalledProbe>(directory);
        const QByteArray build = m_probe->newBuild();
        m_probe->offer(build);
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), ready);
        QVERIFY(m_probe->end());
        QTRY_VERIFY(QFile::exists(m_probe->startedMark()));
        QTRY_VERIFY(m_probe->nothingIsStaged());
        QVERIFY(m_probe->stands(build));
    }

    void survivesASingleQuoteInThePath()
    {
        m_probe = std::make_unique<InstalledProbe>(QStringLiteral("player's games"));
        m_probe->offer(m_probe->newBuild());
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), ready);
        QVERIFY(m_probe->end());
        // The script is broken: there is nothing to wait for but its shell's end.
        QTRY_VERIFY(!m_probe->scriptRuns());
        QVERIFY(m_probe->oldStands());
        QVERIFY(m_probe->oldStarts());
        QVERIFY(!QFile::exists(m_probe->startedMark()));
    }

    void replacesWhatAnEarlierUpdateLeft()
    {
        write(m_probe->staged(), "half of an older build");
        QVERIFY(QFile::setPermissions(m_probe->staged(), QFile::ReadOwner));
        write(m_probe->script(), "echo an older script");
        QVERIFY(QFile::setPermissions(m_probe->script(), QFile::ReadOwner));
        const QByteArray build = m_probe->newBuild();
        m_probe->offer(build);
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), ready);
        QVERIFY(m_probe->end());
        QTRY_VERIFY(m_probe->nothingIsStaged());
        QVERIFY(m_probe->stands(build));
    }

    void writesThroughNoLink()
    {
        const QString victim = m_probe->temporaryDirectory() + u"/victim";
        write(victim, "precious");
        QVERIFY(QFile::link(victim, m_probe->staged()));
        m_probe->offer(m_probe->newBuild());
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), ready);
        QCOMPARE(contentOf(victim), QByteArray("precious"));
        QVERIFY(!QFileInfo(m_probe->staged()).isSymLink());
    }

    // Qt cannot name such a place. What it would name instead is somewhere else.
    void stagesNothingBesideANameThatIsNoText_data()
    {
        QTest::addColumn<bool>("archive");
        QTest::newRow("executable") << false;
        QTest::newRow("archive") << true;
    }

    void stagesNothingBesideANameThatIsNoText()
    {
        QFETCH(bool, archive);
        const QByteArray home = QFile::encodeName(QFileInfo(m_probe->directory()).absolutePath());
        const QByteArray place = home + "/Spiele f\xfcr mich";
        QCOMPARE(rename(QFile::encodeName(m_probe->directory()).constData(), place.constData()), 0);
        // The system tells a process where it really is, whatever led there.
        QCOMPARE(symlink(place.constData(), QFile::encodeName(m_probe->directory()).constData()),
                 0);
        const QString elsewhere = m_probe->temporaryDirectory() + u"/here";
        QVERIFY(QDir().mkdir(elsewhere));
        m_probe->process().setWorkingDirectory(elsewhere);
        if (archive) {
            const QByteArray zip = ZipBuilder()
                                       .file("TessellanLauncher.exe", m_probe->newBuild())
                                       .file("file", "x")
                                       .bytes();
            m_probe->server().answer("/archive", HttpAnswer::ok(zip));
            m_probe->run({QStringLiteral("archive"),
                          m_probe->server().url(QStringLiteral("/archive")), QString()});
        } else {
            m_probe->offer(m_probe->newBuild());
            m_probe->run();
        }
        QCOMPARE(m_probe->lastLine(),
                 archive ? QStringLiteral("updateFailed Could not stage full update")
                         : couldNotStage);
        QVERIFY(QDir(elsewhere).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
        QVERIFY(!QFile::exists(m_probe->script()));
        QVERIFY(!QFile::exists(QStringLiteral("/.new")));
        QVERIFY(m_probe->end());
        QCOMPARE(QDir(m_probe->directory())
                     .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{QFileInfo(m_probe->exe()).fileName()});
    }

    void refusesTheScriptsPlace_data()
    {
        QTest::addColumn<QString>("what");
        QTest::newRow("directory") << QStringLiteral("directory");
        QTest::newRow("link to an own file") << QStringLiteral("link");
        QTest::newRow("link to nowhere") << QStringLiteral("dangling");
        QTest::newRow("pipe") << QStringLiteral("pipe");
        QTest::newRow("no temporary directory") << QStringLiteral("nowhere");
        if (geteuid() == 0) // nobody else can make one
            QTest::newRow("another user's file") << QStringLiteral("foreign");
    }

    void refusesTheScriptsPlace()
    {
        QFETCH(QString, what);
        const QString victim = m_probe->temporaryDirectory() + u"/victim";
        const QByteArray script = QFile::encodeName(m_probe->script());
        write(victim, "precious");
        if (what == u"directory") {
            QVERIFY(QDir().mkdir(m_probe->script()));
        } else if (what == u"link") {
            QVERIFY(QFile::link(victim, m_probe->script()));
        } else if (what == u"dangling") {
            QVERIFY(QFile::link(victim + u"2", m_probe->script()));
        } else if (what == u"pipe") {
            QCOMPARE(mkfifo(script.constData(), 0600), 0);
        } else if (what == u"foreign") {
            write(m_probe->script(), "precious");
            QCOMPARE(chown(script.constData(), 65534, 65534), 0);
        } else {
            m_probe->process().setWorkingDirectory(m_probe->temporaryDirectory());
            m_probe->setVariable(QStringLiteral("TMPDIR"),
                                 QString(m_probe->temporaryDirectory() + u"/nowhere"));
        }
        m_probe->offer(m_probe->newBuild());
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), couldNotStage);
        QVERIFY(!QFile::exists(m_probe->staged()));
        QCOMPARE(contentOf(victim), QByteArray("precious"));
        QVERIFY(!QFile::exists(QString(victim + u"2")));
        QVERIFY(what != u"nowhere" || !QFile::exists(m_probe->script()));
        if (what == u"foreign")
            QCOMPARE(contentOf(m_probe->script()), QByteArray("precious"));
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
    }

    void failsWhereADirectoryStands()
    {
        QVERIFY(QDir().mkpath(m_probe->staged() + u"/full"));
        m_probe->offer(m_probe->newBuild());
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), couldNotStage);
        QVERIFY(QFileInfo(m_probe->staged()).isDir());
        QVERIFY(!QFile::exists(m_probe->script()));
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
    }

    void failsInAReadOnlyDirectory()
    {
        // Modes do not stop root: then the copy runs as somebody else.
        if (geteuid() == 0) {
            QVERIFY(m_probe->openForEverybody());
            m_probe->process().setChildProcessModifier([] {
                if (setgid(65534) != 0 || setuid(65534) != 0)
                    _exit(1);
            });
        }
        QVERIFY(QFile::setPermissions(m_probe->directory(), QFile::Permissions::fromInt(0x5555)));
        m_probe->offer(m_probe->newBuild());
        m_probe->run();
        expectFailedStaging();
    }

    void standsWhenKilledDuringTheDownload()
    {
        const QByteArray build = m_probe->newBuild(severalSlices);
        HttpAnswer stalled = HttpAnswer::ok(build);
        stalled.stallAfter = severalSlices / 2;
        m_probe->offer(stalled, QStringLiteral("1.0.17"), sha256Of(build));
        m_probe->start();
        QTRY_COMPARE(m_probe->server().requestCount("/build"), 1);
        m_probe->process().kill();
        QVERIFY(m_probe->process().waitForFinished());
        QVERIFY(m_probe->nothingIsStaged());
        QVERIFY(m_probe->oldStands());
        QVERIFY(m_probe->oldStarts());
    }

    void swapsWhenKilledAfterStaging()
    {
        const QByteArray build = m_probe->newBuild(severalSlices);
        m_probe->offer(build);
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), ready);
        m_probe->process().kill();
        QTRY_VERIFY(QFile::exists(m_probe->startedMark()));
        QTRY_VERIFY(m_probe->nothingIsStaged());
        QVERIFY(m_probe->stands(build));
    }

    void neverFreezes()
    {
        // Its own 60 MB are hashed; 60 MB are downloaded, hashed and written.
        constexpr qsizetype size = 60 * 1000 * 1000;
        const QByteArray build = m_probe->newBuild().leftJustified(size, '\n');
        QVERIFY(QFile::resize(m_probe->exe(), size + 1));
        m_probe->offer(HttpAnswer::ok(build), QStringLiteral("1.0.16"), sha256Of(build));
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), QStringLiteral("updateReady 1.0.16"));
        QVERIFY2(m_probe->longestGapMs() >= 0 && m_probe->longestGapMs() <= 100,
                 qPrintable(QString::number(m_probe->longestGapMs())));
    }

    void neverHoldsABuildInMemory()
    {
        const qint64 little = peakMegabytes(1'000'000);
        const qint64 large = peakMegabytes(60'000'000);
        qInfo("most memory for a build of 1 MB: %lld MB, of 60 MB: %lld MB", little, large);
        QVERIFY(little > 0);
        QVERIFY(large < little + 30);
    }

private:
    qint64 peakMegabytes(qsizetype size)
    {
        m_probe = std::make_unique<InstalledProbe>();
        // The sanitizer keeps what was freed.
        m_probe->setVariable(QStringLiteral("ASAN_OPTIONS"),
                             QStringLiteral("detect_leaks=1:quarantine_size_mb=1"));
        m_probe->offer(m_probe->newBuild().leftJustified(size, '\n'));
        m_probe->run();
        [this] { QCOMPARE(m_probe->lastLine(), ready); }();
        const QByteArray status =
            contentOf(QStringLiteral("/proc/%1/status").arg(m_probe->process().processId()));
        const QByteArray peak = status.mid(status.indexOf("VmHWM:") + 6);
        return peak.left(peak.indexOf("kB")).trimmed().toLongLong() / 1024;
    }

    void expectFailedStaging()
    {
        QCOMPARE(m_probe->lastLine(), couldNotStage);
        QVERIFY(m_probe->nothingIsStaged());
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
        QVERIFY(m_probe->oldStarts());
    }

    std::unique_ptr<InstalledProbe> m_probe;
};

QTEST_GUILESS_MAIN(TestUpdateStaging)
#include "tst_update_staging.moc"
