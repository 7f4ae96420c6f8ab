#include "app/settings.h"
#include "tests/support/files.h"
#include "tests/support/throwaway_home.h"
#include "versions/version_manager.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <functional>
#include <limits>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int mega = 1024 * 1024;
const QByteArray jarContent = "the new jar";
const QByteArray otherContent = "The new jar";

using Disguise = std::function<int(struct stat&)>;
Disguise disguise;

QString digestOf(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

// Writes without showing it in the file's size and modification time.
void replaceUnseen(const QString& path, const QByteArray& content)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat before = {};
    stat(name.constData(), &before);
    writeFile(path, content);
    const timespec times[] = {before.st_atim, before.st_mtim};
    utimensat(AT_FDCWD, name.constData(), times, 0);
}

// What the process has read from files and sockets so far.
qint64 bytesReadSoFar()
{
    for (const QByteArray& line : contentOf(QStringLiteral("/proc/self/io")).split('\n')) {
        if (line.startsWith("rchar:"))
            return line.mid(6).trimmed().toLongLong();
    }
    return -1;
}

// A file that looks as if it had never been touched since long ago.
int frozen(struct stat& info)
{
    info.st_size = 11;
    info.st_mtim = info.st_ctim = {1000, 0};
    info.st_ino = info.st_dev = 1;
    return 0;
}

} // namespace

// Stands before the C library's: a test can show the program's files as other file systems do.
extern "C" int fstat(int descriptor, struct stat* info) noexcept
{
    const int result = fstatat(descriptor, "", info, AT_EMPTY_PATH);
    return result == 0 && disguise ? disguise(*info) : result;
}

// Which jars are hashed again, and which are known from their size, times and inode.
class TestJarDigests : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        throwaway_home::clear();
        m_home = std::make_unique<QTemporaryDir>();
        Settings::get().setGameDir(m_home->path());
        m_manager = std::make_unique<VersionManager>();
        m_version.sha256 = digestOf(jarContent);
    }

    void cleanup() { disguise = {}; }

    void readsAnUnchangedJarOnce()
    {
        const QByteArray big(8 * mega, 'j');
        m_version.sha256 = digestOf(big);
        writeFile(jar(), big);
        // A jar that has just been written is read again until its times can be trusted.
        QTRY_VERIFY(bytesReadBy([this] { return !m_manager->needsInstall(m_version); }) < mega);
        m_version.sha256 = digestOf(jarContent);
        QVERIFY(bytesReadBy([this] { return m_manager->needsInstall(m_version); }) < mega);
    }

    void readsAChangedJarAgain()
    {
        const QByteArray big(8 * mega, 'j');
        m_version.sha256 = digestOf(big);
        writeFile(jar(), big);
        QTRY_VERIFY(bytesReadBy([this] { return !m_manager->needsInstall(m_version); }) < mega);
        replaceUnseen(jar(), QByteArray(8 * mega, 'x'));
        QVERIFY(m_manager->needsInstall(m_version));
    }

    // Many file systems' clocks stand still for up to 10 ms at a time.
    void noticesAChangeWithinOneTick()
    {
        disguise = [](struct stat& info) {
            for (timespec* time : {&info.st_mtim, &info.st_ctim})
                time->tv_nsec -= time->tv_nsec % 10'000'000;
            return 0;
        };
        QCOMPARE(otherContent.size(), jarContent.size());
        for (int i = 0; i < 50; ++i) {
            writeFile(jar(), jarContent);
            QVERIFY(!m_manager->needsInstall(m_version));
            replaceUnseen(jar(), otherContent);
            QVERIFY(m_manager->needsInstall(m_version));
        }
    }

    // File systems that tell times by whole seconds, or by two: a change within them does not show.
    void noticesAChangeOnACoarseClock_data()
    {
        QTest::addColumn<int>("seconds");
        QTest::newRow("ext4 with small inodes") << 1;
        QTest::newRow("FAT") << 2;
    }

    void noticesAChangeOnACoarseClock()
    {
        QFETCH(int, seconds);
        disguise = [seconds](struct stat& info) {
            for (timespec* time : {&info.st_mtim, &info.st_ctim})
                *time = {time->tv_sec - time->tv_sec % seconds, 0};
            return 0;
        };
        for (int i = 0; i < 12; ++i) {
            writeFile(jar(), jarContent);
            QVERIFY(!m_manager->needsInstall(m_version));
            QTest::qSleep(30 + 15 * i); // at every part of the second
            QVERIFY(!m_manager->needsInstall(m_version));
            replaceUnseen(jar(), otherContent);
            QVERIFY(m_manager->needsInstall(m_version));
        }
    }

    // The file was changed before the clock was set back, and can be again.
    void doesNotTrustAJarFromTheFuture()
    {
        disguise = [](struct stat& info) {
            frozen(info);
            info.st_ctim = {std::numeric_limits<int>::max(), 0};
            return 0;
        };
        writeFile(jar(), jarContent);
        QVERIFY(!m_manager->needsInstall(m_version));
        writeFile(jar(), otherContent);
        QVERIFY(m_manager->needsInstall(m_version));
    }

    void noticesEveryDifference_data()
    {
        QTest::addColumn<Disguise>("changed");
        const auto row = [](const char* name, const std::function<void(struct stat&)>& change) {
            QTest::newRow(name) << Disguise([change](struct stat& info) {
                frozen(info);
                change(info);
                return 0;
            });
        };
        row("size", [](struct stat& info) { info.st_size = 12; });
        row("time of modification", [](struct stat& info) { info.st_mtim.tv_sec = 999; });
        row("a nanosecond of it", [](struct stat& info) { info.st_mtim.tv_nsec = 1; });
        row("time of change", [](struct stat& info) { info.st_ctim.tv_sec = 1001; });
        row("inode", [](struct stat& info) { info.st_ino = 2; });
        row("device", [](struct stat& info) { info.st_dev = 2; });
    }

    void noticesEveryDifference()
    {
        QFETCH(Disguise, changed);
        disguise = frozen;
        writeFile(jar(), jarContent);
        QVERIFY(!m_manager->needsInstall(m_version));
        writeFile(jar(), otherContent);
        QVERIFY(!m_manager->needsInstall(m_version)); // looks the same
        disguise = changed;
        QVERIFY(m_manager->needsInstall(m_version));
    }

    void doesNotTrustAJarThatChangesWhileItIsRead()
    {
        int looks = 0;
        disguise = [&looks](struct stat& info) {
            frozen(info);
            info.st_ctim.tv_sec += looks++;
            return 0;
        };
        writeFile(jar(), jarContent);
        QVERIFY(!m_manager->needsInstall(m_version));
        disguise = frozen; // as before it was read
        writeFile(jar(), otherContent);
        QVERIFY(m_manager->needsInstall(m_version));
    }

    // It could have been written to until the clock's next tick, after that part was read.
    void doesNotTrustAJarThatWasFreshWhenReadingBegan()
    {
        const QByteArray longToRead(32 * mega, 'j');
        m_version.sha256 = digestOf(longToRead);
        writeFile(jar(), longToRead);
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        disguise = [now](struct stat& info) {
            frozen(info);
            info.st_ctim = now;
            return 0;
        };
        QVERIFY(!m_manager->needsInstall(m_version));
        writeFile(jar(), otherContent);
        QVERIFY(m_manager->needsInstall(m_version));
    }

    void noticesWhatHappensUnderAnotherName()
    {
        writeFile(jar(), jarContent);
        const QString link = m_home->filePath(QStringLiteral("link"));
        const QString other = m_home->filePath(QStringLiteral("other"));
        writeFile(other, otherContent);
        QCOMPARE(::link(QFile::encodeName(jar()).constData(), QFile::encodeName(link).constData()),
                 0);
        waitUntilRemembered();
        replaceUnseen(link, otherContent);
        QVERIFY(m_manager->needsInstall(m_version));
        replaceUnseen(link, jarContent);
        waitUntilRemembered();
        QCOMPARE(
            std::rename(QFile::encodeName(other).constData(), QFile::encodeName(jar()).constData()),
            0);
        QVERIFY(m_manager->needsInstall(m_version));
    }

    // Nobody writes into it: reading would wait for ever.
    void needsInstallingOverANamedPipe()
    {
        writeFile(jar(), jarContent);
        QVERIFY(QFile::remove(jar()));
        QCOMPARE(mkfifo(QFile::encodeName(jar()).constData(), 0600), 0);
        QVERIFY(m_manager->needsInstall(m_version));
    }

    void needsInstallingWhenNothingIsKnown()
    {
        writeFile(jar(), jarContent);
        disguise = [](struct stat& /*info*/) { return -1; };
        QVERIFY(m_manager->needsInstall(m_version));
    }

private:
    // The memory alone is not told by the bytes read from a jar this small.
    void waitUntilRemembered()
    {
        QVERIFY(!m_manager->needsInstall(m_version));
        QTest::qSleep(2500);
        QVERIFY(!m_manager->needsInstall(m_version));
    }

    QString jar() const { return m_manager->jarPath(m_version.id); }

    // Very much when the answer is not the expected one.
    template <typename Question>
    static qint64 bytesReadBy(const Question& isAsExpected)
    {
        const qint64 before = bytesReadSoFar();
        return isAsExpected() ? bytesReadSoFar() - before : std::numeric_limits<qint64>::max();
    }

    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<VersionManager> m_manager;
    GameVersion m_version{QStringLiteral("0.3"), {}, {}, {}};
};

QTEST_GUILESS_MAIN(TestJarDigests)
#include "tst_jar_digests.moc"
