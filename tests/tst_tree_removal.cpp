#include "services/tree_removal.h"
#include "tests/support/files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class TestTreeRemoval : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        writeFile(path(u"outside/precious"_s), "precious");
    }

    void removesWhatIsThere()
    {
        writeFile(path(u"tree/a/b/file"_s), "x");
        writeFile(path(u"tree/a/.hidden"_s), "x");
        writeFile(path(u"tree/c"_s), "x");
        QVERIFY(QDir().mkpath(path(u"tree/empty/one"_s)));
        QVERIFY(remove(u"tree"_s));
        QVERIFY(remove(u"tree"_s)); // nothing is no failure
        writeFile(path(u"file"_s), "x");
        QVERIFY(remove(u"file"_s));
        QCOMPARE(namesIn(m_home->path()), QStringList{u"outside"_s});
    }

    void followsNoLink()
    {
        QVERIFY(QDir().mkpath(path(u"tree/d"_s)));
        QVERIFY(QFile::link(path(u"outside"_s), path(u"tree/link"_s)));
        QVERIFY(QFile::link(path(u"outside"_s), path(u"tree/d/link"_s)));
        QVERIFY(QFile::link(path(u"outside"_s), path(u"link"_s)));
        QVERIFY(remove(u"tree"_s));
        QVERIFY(remove(u"link"_s));
        QCOMPARE(contentOf(path(u"outside/precious"_s)), QByteArray("precious"));
        QCOMPARE(namesIn(m_home->path()), QStringList{u"outside"_s});
    }

    // 2,000 steps of three letters: twice what a path may be, and more than a process may have
    // open.
    void removesWhatIsDeeperThanAPath()
    {
        QVERIFY(QDir().mkdir(path(u"tree"_s)));
        int directory = open(QFile::encodeName(path(u"tree"_s)).constData(), O_PATH);
        for (int i = 0; i < 2'000; ++i) {
            QCOMPARE(mkdirat(directory, "abc", 0700), 0);
            const int next = openat(directory, "abc", O_PATH);
            close(directory);
            directory = next;
        }
        close(directory);
        rlimit before = {};
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit few = {256, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        const bool removed = remove(u"tree"_s);
        setrlimit(RLIMIT_NOFILE, &before);
        QVERIFY(removed);
        QCOMPARE(namesIn(m_home->path()), QStringList{u"outside"_s});
    }

    void keepsNamesOfItsOwnApart()
    {
        for (int i = 0; i < 5; ++i)
            writeFile(path(u"tree/.removed-%1/"_s.arg(i) + u"d/"_s.repeated(100) + u'f'), "x");
        QVERIFY(remove(u"tree"_s));
        QVERIFY(!QFileInfo::exists(path(u"tree"_s)));
    }

    void removesWhatItsOwnerMayNotWrite()
    {
        writeFile(path(u"tree/closed/inner/file"_s), "x");
        for (const QString& name : {u"tree/closed/inner"_s, u"tree/closed"_s, u"tree"_s})
            chmod(QFile::encodeName(path(name)).constData(), name.endsWith(u"inner") ? 0 : 0555);
        QVERIFY(asSomebodyElse([this] { return remove(u"tree"_s); }));
        QVERIFY(!QFileInfo::exists(path(u"tree"_s)));
    }

    void saysWhatIsLeft()
    {
        writeFile(path(u"tree/file"_s), "x");
        chmod(QFile::encodeName(path(u"tree"_s)).constData(), 0755);
        QVERIFY(!asSomebodyElse([this] { return remove(u"tree"_s); }, false));
        QVERIFY(QFileInfo::exists(path(u"tree/file"_s)));
    }

    void stopsWhenCancelled()
    {
        for (int i = 0; i < 100; ++i)
            writeFile(path(u"tree/%1"_s.arg(i)), "x");
        int asked = 0;
        QVERIFY(!removeTree(QFile::encodeName(path(u"tree"_s)), [&asked] { return ++asked > 10; }));
        QVERIFY(namesIn(path(u"tree"_s)).size() >= 90);
    }

private:
    QString path(const QString& name) const { return m_home->filePath(name); }
    bool remove(const QString& name) const { return removeTree(QFile::encodeName(path(name))); }

    // Modes do not stop root: then a child does it as nobody, who owns everything or nothing.
    template <typename Function>
    bool asSomebodyElse(const Function& function, bool ownsIt = true) const
    {
        constexpr uid_t nobody = 65534;
        if (geteuid() != 0 && ownsIt)
            return function();
        if (ownsIt && system(qPrintable(u"chown -R 65534 "_s + m_home->path())) != 0)
            return false;
        if (!ownsIt)
            chmod(QFile::encodeName(m_home->path()).constData(), 0755);
        const pid_t child = fork();
        if (child == 0)
            _exit(setuid(nobody) == 0 && function() ? 0 : 1);
        int status = -1;
        waitpid(child, &status, 0);
        return status == 0;
    }

    std::unique_ptr<QTemporaryDir> m_home;
};

QTEST_GUILESS_MAIN(TestTreeRemoval)
#include "tst_tree_removal.moc"
