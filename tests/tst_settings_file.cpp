#include "app/settings.h"
#include "profiles/profile_manager.h"
#include "tests/support/files.h"
#include "tests/support/throwaway_home.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTest>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QByteArray stored = "[General]\nauthToken=t\nauthUsername=name\nauthUuid=id\n";

bool diskIsFull = false;
bool diskHasALittleRoom = false; // for all but the last bytes of what is written
bool isSomebodyElses = false;
QByteArray addedByAnother;
QStringList written; // "mode name" of the settings directory's files that received bytes

QString pathOf(int descriptor)
{
    char target[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t size = readlink(link.c_str(), target, sizeof target);
    return QFile::decodeName(QByteArray(target, size < 0 ? 0 : size));
}

// None: 0.
int modeOf(const QString& path)
{
    struct stat info = {};
    return stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : 0;
}

void setMode(const QString& path, int mode)
{
    QCOMPARE(chmod(QFile::encodeName(path).constData(), mode_t(mode)), 0);
}

QString configDir()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
}

LaunchProfile named(const QString& name)
{
    LaunchProfile p;
    p.name = name;
    return p;
}

} // namespace

// Before the C library's: what reaches which file, and a disk that takes nothing.
extern "C" ssize_t write(int descriptor, const void* data, size_t size)
{
    static const auto real =
        reinterpret_cast<ssize_t (*)(int, const void*, size_t)>(dlsym(RTLD_NEXT, "write"));
    const QString path = pathOf(descriptor);
    if (!path.startsWith(configDir()))
        return real(descriptor, data, size);
    struct stat info = {};
    fstat(descriptor, &info);
    written.append(QStringLiteral("%1 %2").arg(info.st_mode & 07777, 0, 8).arg(path));
    // The last block is the lock's, or QSettings would not even begin.
    if (diskHasALittleRoom && size > 3)
        return real(descriptor, data, size - 3);
    if (!diskIsFull || path.endsWith(u".lock"))
        return real(descriptor, data, size);
    errno = ENOSPC;
    return -1;
}

// Another launcher, which writes right after this one.
extern "C" int rename(const char* from, const char* to) noexcept
{
    const int result = renameat(AT_FDCWD, from, AT_FDCWD, to);
    const QString path = QFile::decodeName(to);
    if (!addedByAnother.isEmpty() && path.endsWith(u"/Launcher.conf"))
        writeFile(path, contentOf(path) + std::exchange(addedByAnother, {}));
    return result;
}

extern "C" int fchmod(int descriptor, mode_t mode) noexcept
{
    static const auto real = reinterpret_cast<int (*)(int, mode_t)>(dlsym(RTLD_NEXT, "fchmod"));
    if (!isSomebodyElses)
        return real(descriptor, mode);
    errno = EPERM;
    return -1;
}

// Who can read the settings file, and what becomes of it when it cannot be written.
class TestSettingsFile : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        throwaway_home::clear();
        QDir(configDir()).removeRecursively();
        QDir().mkpath(configDir());
        umask(022);
        written.clear();
    }

    void cleanup()
    {
        alarm(0);
        diskIsFull = diskHasALittleRoom = isSomebodyElses = false;
        umask(022);
    }

    void isPrivateFromTheFirstWrite_data()
    {
        QTest::addColumn<int>("mask");
        QTest::addColumn<bool>("profilesFirst");
        QTest::newRow("usual") << 022 << false;
        QTest::newRow("none") << 0 << false;
        QTest::newRow("strict") << 077 << false;
        QTest::newRow("none, a profile first") << 0 << true;
    }

    void isPrivateFromTheFirstWrite()
    {
        QFETCH(int, mask);
        QFETCH(bool, profilesFirst);
        umask(mode_t(mask));
        {
            Settings settings;
            ProfileManager profiles;
            QVERIFY(!QFileInfo::exists(file())); // reading makes none
            if (profilesFirst)
                QVERIFY(profiles.save(named(QStringLiteral("p")), {}, nullptr));
            settings.setAuth(QStringLiteral("t"), QStringLiteral("name"), QStringLiteral("id"));
            QTRY_VERIFY(contentOf(file()).contains("authToken=t"));
            QCOMPARE(modeOf(file()), 0600);
            QCOMPARE(modeOf(QFileInfo(file()).absolutePath()), 0700);
            settings.setLastVersion(QStringLiteral("1"));
        }
        QVERIFY(contentOf(file()).contains("lastVersion=1"));
        verifyNobodyCouldRead();
        QCOMPARE(namesIn(QFileInfo(file()).absolutePath()),
                 QStringList{QFileInfo(file()).fileName()});
    }

    void leavesAnExistingDirectoryItsMode()
    {
        const QString directory = QFileInfo(file()).absolutePath();
        QDir().mkpath(directory);
        setMode(directory, 0755);
        Settings().setLastVersion(QStringLiteral("1"));
        QCOMPARE(modeOf(directory), 0755);
        QCOMPARE(modeOf(file()), 0600);
    }

    void makesMissingDirectoriesForTheOwnerAlone()
    {
        QDir(configDir()).removeRecursively();
        Settings().setLastVersion(QStringLiteral("1"));
        QCOMPARE(modeOf(configDir()), 0700);
        QCOMPARE(modeOf(file()), 0600);
    }

    void closesWhatIsFoundOpen_data()
    {
        QTest::addColumn<int>("found");
        QTest::addColumn<int>("left");
        QTest::newRow("as it was made before") << 0644 << 0600;
        QTest::newRow("for everybody") << 0666 << 0600;
        QTest::newRow("for the group") << 0640 << 0600;
        QTest::newRow("not to be written") << 0444 << 0400;
        QTest::newRow("private") << 0600 << 0600;
    }

    void closesWhatIsFoundOpen()
    {
        QFETCH(int, found);
        QFETCH(int, left);
        writeFile(file(), stored);
        setMode(file(), found);
        const QString leftover = QString(file() + u".dEfGhI");
        writeFile(leftover, stored);
        const Settings settings;
        QCOMPARE(modeOf(file()), left);
        QCOMPARE(modeOf(leftover), 0600);
        QCOMPARE(settings.authToken(), QStringLiteral("t"));
        QCOMPARE(contentOf(file()), stored);
    }

    void closesAFileThatWasOpenedMeanwhile()
    {
        writeFile(file(), stored);
        Settings settings;
        setMode(file(), 0644);
        written.clear();
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(modeOf(file()), 0600);
        QTRY_VERIFY(contentOf(file()).contains("lastVersion=1"));
        QVERIFY(QFile::remove(file())); // the player starts afresh while the launcher runs
        settings.setAuth(QStringLiteral("u"), QStringLiteral("name"), QStringLiteral("id"));
        QVERIFY(QFile::remove(file())); // and once more, at the worst moment
        QTRY_VERIFY(contentOf(file()).contains("authToken=u"));
        verifyNobodyCouldRead();
    }

    void followsALink()
    {
        const QString target = throwaway_home::path() + u"/elsewhere.conf";
        writeFile(target, stored);
        setMode(target, 0644);
        QDir().mkpath(QFileInfo(file()).absolutePath());
        QVERIFY(QFile::link(target, file()));
        Settings().setLastVersion(QStringLiteral("1"));
        QVERIFY(QFileInfo(file()).isSymLink());
        QCOMPARE(modeOf(target), 0600);
        QVERIFY(contentOf(target).contains("lastVersion=1"));
        QVERIFY(QFile::remove(target));
        Settings().setAuth(QStringLiteral("u"), {}, {}); // the link leads nowhere now
        QCOMPARE(modeOf(target), 0600);
        QVERIFY(contentOf(target).contains("authToken=u"));
        QVERIFY(QFile::remove(target));
    }

    void replacesAnOpenFileOfSomebodyElse()
    {
        writeFile(file(), stored);
        setMode(file(), 0666);
        isSomebodyElses = true;
        Settings settings;
        QCOMPARE(modeOf(file()), 0600);
        QCOMPARE(settings.authToken(), QStringLiteral("t"));
        QCOMPARE(contentOf(file()), stored);
        QCOMPARE(namesIn(QFileInfo(file()).absolutePath()).size(), 1);
    }

    void replacesWhatALinkLeadsTo()
    {
        const QString target = throwaway_home::path() + u"/elsewhere.conf";
        writeFile(target, stored);
        setMode(target, 0666);
        QDir().mkpath(QFileInfo(file()).absolutePath());
        QVERIFY(QFile::link(target, file()));
        isSomebodyElses = true;
        const Settings settings;
        QVERIFY(QFileInfo(file()).isSymLink());
        QCOMPARE(modeOf(target), 0600);
        QCOMPARE(contentOf(target), stored);
        QVERIFY(QFile::remove(target));
    }

    void replacesNothingOnAFullDisk()
    {
        writeFile(file(), stored);
        setMode(file(), 0666);
        isSomebodyElses = diskIsFull = true;
        const Settings settings;
        QCOMPARE(contentOf(file()), stored);
        QCOMPARE(namesIn(QFileInfo(file()).absolutePath()).size(), 1);
    }

    void leavesADirectoryInItsPlaceItsMode()
    {
        QDir().mkpath(file());
        setMode(file(), 0755);
        const Settings settings;
        QCOMPARE(modeOf(file()), 0755);
        QVERIFY(QDir().rmdir(file()));
    }

    void endsASessionThatAnotherFileHolds_data()
    {
        QTest::addColumn<QString>("other");
        const QString system = QFile::decodeName(qgetenv("XDG_CONFIG_DIRS"));
        QTest::newRow("the organisation's") << configDir() + u"/Tessellan.conf";
        QTest::newRow("the system's") << system + u"/Tessellan/Launcher.conf";
        QTest::newRow("the organisation's in the system") << system + u"/Tessellan.conf";
    }

    void endsASessionThatAnotherFileHolds()
    {
        QFETCH(QString, other);
        writeFile(other, stored + "activeProfile=p\n");
        {
            Settings settings;
            settings.setAuth(QStringLiteral("u"), QStringLiteral("me"), QStringLiteral("x"));
            settings.clearAuth();
            verifySignedOut(settings);
            QCOMPARE(ProfileManager().activeProfile(), QString());
        }
        verifySignedOut(Settings());
        QCOMPARE(contentOf(other), stored + "activeProfile=p\n");
        QVERIFY(QFile::remove(other));
    }

    void tellsWhatCannotBeWritten_data()
    {
        QTest::addColumn<bool>("isFile");
        QTest::newRow("a directory instead of the file") << false;
        QTest::newRow("a file instead of the directory") << true;
    }

    void tellsWhatCannotBeWritten()
    {
        QFETCH(bool, isFile);
        const QString directory = QFileInfo(file()).absolutePath();
        if (isFile)
            writeFile(directory, "in the way");
        else
            QDir().mkpath(file());
        written.clear();
        {
            Settings settings;
            ProfileManager profiles;
            QCOMPARE(settings.unwrittenFile(), QString()); // nothing was to be written
            settings.setAuth(QStringLiteral("t"), QStringLiteral("name"), QStringLiteral("id"));
            QCOMPARE(settings.unwrittenFile(), file());
            QVERIFY(profiles.save(named(QStringLiteral("p")), {}, nullptr));
            QCOMPARE(profiles.unwrittenFile(), file());
            QCOMPARE(settings.authToken(), QStringLiteral("t"));
            QCoreApplication::processEvents();
            QCOMPARE(settings.unwrittenFile(), file());

            QVERIFY(isFile ? QFile::remove(directory) : QDir().rmdir(file()));
            settings.setLastVersion(QStringLiteral("1"));
            QCOMPARE(settings.unwrittenFile(), QString());
            profiles.setActiveProfile(QStringLiteral("p"));
            QCOMPARE(profiles.unwrittenFile(), QString());
        }
        QCOMPARE(Settings().authToken(), QStringLiteral("t"));
        QVERIFY(ProfileManager().find(QStringLiteral("p")));
        verifyNobodyCouldRead();
    }

    // QSettings would wait for it for ever.
    void putsAsideWhatStandsInTheLocksPlace()
    {
        const QString lock = file() + u".lock";
        QDir().mkpath(lock + u"/something");
        Settings settings;
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(settings.unwrittenFile(), QString());
        QVERIFY(contentOf(file()).contains("lastVersion=1"));
        QVERIFY(QFileInfo::exists(lock + u".aside/something"));
    }

    void putsAsideALinkThatLeadsNowhere()
    {
        const QString lock = file() + u".lock";
        QDir().mkpath(QFileInfo(lock).absolutePath());
        QVERIFY(QFile::link(QStringLiteral("nowhere"), lock));
        alarm(20);
        Settings settings;
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(settings.unwrittenFile(), QString());
        QVERIFY(QFileInfo(QString(lock + u".aside")).isSymLink());
    }

    void putsAsideALockBesideAnEarlierOne()
    {
        const QString lock = file() + u".lock";
        QDir().mkpath(lock + u"/second");
        QDir().mkpath(lock + u".aside/first");
        alarm(20); // nothing ends a wait that is for ever but the end of the program
        Settings settings;
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(settings.unwrittenFile(), QString());
        QVERIFY(QFileInfo::exists(lock + u".aside/first"));
        QVERIFY(QFileInfo::exists(lock + u".aside_/second"));
    }

    // Nobody writes into it: reading would wait for ever.
    void putsAsideANamedPipe_data()
    {
        QTest::addColumn<bool>("isLink");
        QTest::addColumn<bool>("comesLater");
        QTest::newRow("found at the start") << false << false;
        QTest::newRow("at the end of a link") << true << false;
        QTest::newRow("comes before a change") << false << true;
    }

    void putsAsideANamedPipe()
    {
        QFETCH(bool, isLink);
        QFETCH(bool, comesLater);
        QDir().mkpath(QFileInfo(file()).absolutePath());
        const QString pipe = isLink ? throwaway_home::path() + u"/pipe" : file();
        const auto place = [&] {
            QCOMPARE(mkfifo(QFile::encodeName(pipe).constData(), 0644), 0);
            QVERIFY(!isLink || QFile::link(pipe, file()));
        };
        alarm(20);
        if (!comesLater)
            place();
        Settings settings;
        if (comesLater)
            place();
        settings.setAuth(QStringLiteral("t"), QStringLiteral("name"), QStringLiteral("id"));
        QCOMPARE(settings.unwrittenFile(), QString());
        QVERIFY(contentOf(file()).contains("authToken=t"));
        QCOMPARE(modeOf(file()), 0600);
        const QFileInfo aside(QString(file() + u".aside"));
        QVERIFY(aside.exists() && !aside.isFile());
        QCOMPARE(aside.isSymLink(), isLink);
        verifyNobodyCouldRead();
        QFile::remove(pipe == file() ? aside.filePath() : pipe);
    }

    void aPipeThatComesAfterAChangeStopsNobody()
    {
        Settings settings;
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(settings.unwrittenFile(), QString());
        QVERIFY(QFile::remove(file()));
        QCOMPARE(mkfifo(QFile::encodeName(file()).constData(), 0600), 0);
        alarm(20);
        QCoreApplication::processEvents(); // QSettings looks at the file once more
        QVERIFY(!QFileInfo::exists(file()));
    }

    void opensNoOtherFile()
    {
        const QString other = configDir() + u"/Tessellan.conf";
        QCOMPARE(mkfifo(QFile::encodeName(other).constData(), 0600), 0);
        alarm(20);
        Settings().setLastVersion(QStringLiteral("1"));
        QVERIFY(QFile::remove(other));
        QVERIFY(contentOf(file()).contains("lastVersion=1"));
    }

    // Two keys that are one as soon as they are written.
    void writesOverKeysThatBeginWithASlash()
    {
        writeFile(file(), "[General]\n/lastVersion=0\nlastVersion=1\n");
        Settings settings;
        settings.setJavaPath(QStringLiteral("/java"));
        QCOMPARE(settings.unwrittenFile(), QString());
        QVERIFY(contentOf(file()).contains("javaPath=/java"));
    }

    void leavesWhatAnotherLauncherWritesAtOnce()
    {
        writeFile(file(), stored);
        Settings settings;
        addedByAnother = "lastVersion=1\n";
        settings.setJavaPath(QStringLiteral("/java"));
        QCOMPARE(settings.unwrittenFile(), QString());
        QVERIFY(contentOf(file()).contains("lastVersion=1"));
        QVERIFY(contentOf(file()).contains("javaPath=/java"));
    }

    // A file that was cut would lose the profiles as well.
    void keepsTheFileOnAFullDisk()
    {
        writeFile(file(), stored);
        written.clear();
        Settings settings;
        ProfileManager profiles;
        diskIsFull = true;
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(settings.unwrittenFile(), file());
        settings.clearAuth();
        QVERIFY(profiles.save(named(QStringLiteral("p")), {}, nullptr));
        QCOMPARE(profiles.unwrittenFile(), file());
        QCoreApplication::processEvents();
        QCOMPARE(contentOf(file()), stored);
        QCOMPARE(namesIn(QFileInfo(file()).absolutePath()).size(), 1);
        // The launcher goes on with what it was told.
        verifySignedOut(settings);
        QCOMPARE(settings.lastVersion(), QStringLiteral("1"));

        diskIsFull = false;
        settings.setJavaPath(QStringLiteral("/java"));
        QTRY_VERIFY(contentOf(file()).contains("javaPath=/java"));
        QCOMPARE(settings.unwrittenFile(), QString());
        const QByteArray content = contentOf(file());
        QVERIFY(content.contains("lastVersion=1"));
        QVERIFY(content.contains("profiles="));
        QVERIFY(!content.contains("auth"));
        verifyNobodyCouldRead();
    }

    void keepsWhatALinkLeadsToOnAFullDisk()
    {
        const QString target = configDir() + u"/elsewhere.conf";
        writeFile(target, stored);
        QDir().mkpath(QFileInfo(file()).absolutePath());
        QVERIFY(QFile::link(target, file()));
        Settings settings;
        diskIsFull = true;
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(settings.unwrittenFile(), file());
        QVERIFY(QFileInfo(file()).isSymLink());
        QCOMPARE(contentOf(target), stored);
        QVERIFY(QFile::remove(target));
    }

    // The process of that number crashed.
    void keepsTheFileBesideAnEarlierOne()
    {
        writeFile(file(), stored);
        writeFile(QString(file() + u'.' + QString::number(getpid())), "of long ago");
        Settings settings;
        diskIsFull = true;
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(settings.unwrittenFile(), file());
        QCOMPARE(contentOf(file()), stored);
    }

    void knowsAFileThatEndsWithinALine()
    {
        writeFile(file(), stored);
        Settings settings;
        diskIsFull = diskHasALittleRoom = true;
        settings.setServerUrl(QStringLiteral("https://a.long/address"));
        QCOMPARE(settings.unwrittenFile(), file());
        QCOMPARE(contentOf(file()), stored);
    }

    void takesWhatAnotherLauncherWrote()
    {
        Settings settings;
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(settings.unwrittenFile(), QString());
        writeFile(file(), stored + "lastVersion=0\n");
        diskIsFull = true;
        settings.setJavaPath(QStringLiteral("/java"));
        QCOMPARE(settings.unwrittenFile(), file());
        QCOMPARE(contentOf(file()), stored + "lastVersion=0\n");
        diskIsFull = false;
        settings.setServerUrl(QStringLiteral("s"));
        QCOMPARE(settings.unwrittenFile(), QString());
        QCOMPARE(contentOf(file()), stored + "javaPath=/java\nlastVersion=0\nserverUrl=s\n");
    }

    void keepsTheFileWhenTheDiskIsFullAtTheEnd()
    {
        writeFile(file(), stored);
        {
            Settings settings;
            settings.setLastVersion(QStringLiteral("1"));
            diskIsFull = true;
        }
        QCOMPARE(contentOf(file()), stored);
        {
            Settings settings; // tried in vain once already
            settings.setLastVersion(QStringLiteral("1"));
            QCOMPARE(settings.unwrittenFile(), file());
        }
        QCOMPARE(contentOf(file()), stored);
    }

    void doesNotTryForEver()
    {
        writeFile(file(), stored);
        Settings settings;
        diskIsFull = true;
        settings.setLastVersion(QStringLiteral("1"));
        QCOMPARE(settings.unwrittenFile(), file());
        written.clear();
        for (int i = 0; i < 20; ++i)
            QCoreApplication::processEvents();
        QCOMPARE(written, QStringList());
    }

    void takesWhateverCanBeStored()
    {
        Settings settings;
        ProfileManager profiles;
        LaunchProfile p = named(QStringLiteral("a=b [c]\n\"d\" ;e\\"));
        p.extraJvmArgs = QString(u"-Dx=1" + QString(QChar::Null) + u"\x2028é");
        QVERIFY(profiles.save(p, {}, nullptr));
        profiles.setActiveProfile(p.name);
        settings.setGameDir(QStringLiteral("a=b,c\n[d]\n=\n%x;"));
        settings.setJavaPath(QString(100'000, u'='));
        QCOMPARE(settings.unwrittenFile(), QString());
        QCOMPARE(profiles.unwrittenFile(), QString());
        QCOMPARE(Settings().gameDir(), settings.gameDir());
        QCOMPARE(ProfileManager().profiles().first().extraJvmArgs, p.extraJvmArgs);
    }

private:
    // Asking QSettings would let it write.
    static QString file()
    {
        static const QString path = throwaway_home::settingsFile();
        return path;
    }

    static void verifyNobodyCouldRead()
    {
        for (const QString& entry : std::as_const(written))
            QVERIFY2(entry.startsWith(u"600 ") || entry.contains(u".lock"), qPrintable(entry));
    }

    static void verifySignedOut(const Settings& settings)
    {
        QCOMPARE(settings.authToken(), QString());
        QCOMPARE(settings.authUsername(), QString());
        QCOMPARE(settings.authUuid(), QString());
    }
};

QTEST_GUILESS_MAIN(TestSettingsFile)
#include "tst_settings_file.moc"
