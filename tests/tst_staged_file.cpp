#include "services/staged_file.h"
#include "tests/support/files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <functional>
#include <memory>

#include <sys/stat.h>

// Every test runs with unnamed files and, as on file systems that have none, without.
class TestStagedFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase_data()
    {
        QTest::addColumn<bool>("unnamed");
        QTest::newRow("unnamed") << true;
        QTest::newRow("named from the start") << false;
    }

    void init()
    {
        QFETCH_GLOBAL(bool, unnamed);
        qputenv("FAULT_TMPFILE", unnamed ? "0" : "1");
        m_home = std::make_unique<QTemporaryDir>();
        m_path = m_home->filePath(QStringLiteral("launcher.new"));
    }

    void cleanup()
    {
        qunsetenv("FAULT_AT");
        qunsetenv("FAULT_LOG");
    }

    void hasItsNameWhenKept()
    {
        QFETCH_GLOBAL(bool, unnamed);
        {
            StagedFile file(m_path);
            QVERIFY(file.create());
            QVERIFY(file.write("first "));
            QVERIFY(file.write("second"));
            QCOMPARE(QFile::exists(m_path), !unnamed);
            QVERIFY(file.keep());
            QCOMPARE(contentOf(m_path), QByteArray("first second"));
        }
        QCOMPARE(contentOf(m_path), QByteArray("first second"));
    }

    void writesAtOnce()
    {
        QFETCH_GLOBAL(bool, unnamed);
        StagedFile file(m_path);
        QVERIFY(file.create());
        QVERIFY(file.write("bytes"));
        if (!unnamed)
            QCOMPARE(contentOf(m_path), QByteArray("bytes"));
    }

    void leavesNothingUnlessKept()
    {
        {
            StagedFile file(m_path);
            QVERIFY(file.create());
            QVERIFY(file.write("bytes"));
        }
        QVERIFY(namesIn(m_home->path()).isEmpty());
    }

    void leavesNothingWhenDiscarded()
    {
        StagedFile file(m_path);
        QVERIFY(file.create());
        QVERIFY(file.write("bytes"));
        file.discard();
        QVERIFY(namesIn(m_home->path()).isEmpty());
    }

    // What another one puts there afterwards is not its own.
    void discardsOnce()
    {
        {
            StagedFile file(m_path);
            QVERIFY(file.create());
            file.discard();
            writeFile(m_path, "another's");
        }
        QCOMPARE(contentOf(m_path), QByteArray("another's"));
    }

    // As the launcher was before: others on the machine may start it.
    void hasTheModeOfAnyNewFile()
    {
        const mode_t before = umask(026);
        const bool kept = staged();
        umask(before);
        QVERIFY(kept);
        struct stat info = {};
        QCOMPARE(stat(QFile::encodeName(m_path).constData(), &info), 0);
        QCOMPARE(int(info.st_mode & 07777), 0640);
    }

    void writesThroughNoLinkThatIsPutThere()
    {
        const QByteArray temporary = qgetenv("TMPDIR");
        const QString victim = m_home->filePath(QStringLiteral("victim"));
        writeFile(victim, "precious");
        qputenv("TMPDIR", QFile::encodeName(m_home->path()));
        qputenv("FAULT_LINK", "launcher.new");
        const bool kept = staged();
        qunsetenv("FAULT_LINK");
        temporary.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", temporary);
        QVERIFY(!kept);
        QCOMPARE(contentOf(victim), QByteArray("precious"));
    }

    // Somebody may still wait for the old one: a download that fails takes nothing away.
    void replacesAnOldFileWhenItIsWhole()
    {
        QFETCH_GLOBAL(bool, unnamed);
        writeFile(m_path, "old");
        StagedFile file(m_path);
        QVERIFY(file.create());
        QCOMPARE(contentOf(m_path), unnamed ? QByteArray("old") : QByteArray());
        QVERIFY(file.write("new"));
        QCOMPARE(contentOf(m_path), unnamed ? QByteArray("old") : QByteArray("new"));
        QVERIFY(file.keep());
        QCOMPARE(contentOf(m_path), QByteArray("new"));
    }

    // Another launcher is at work on a file of its own by now.
    void takesNoOthersFileForItsOwn_data()
    {
        QTest::addColumn<bool>("keeps");
        QTest::newRow("keep") << true;
        QTest::newRow("discard") << false;
    }

    void takesNoOthersFileForItsOwn()
    {
        QFETCH_GLOBAL(bool, unnamed);
        QFETCH(bool, keeps);
        if (unnamed)
            QSKIP("it has no name before it is whole");
        StagedFile file(m_path);
        QVERIFY(file.create() && file.write("bytes"));
        QVERIFY(QFile::remove(m_path));
        writeFile(m_path, "another's half");
        if (keeps)
            QVERIFY(!file.keep());
        else
            file.discard();
        QCOMPARE(contentOf(m_path), QByteArray("another's half"));
    }

    void replacesWhatCameMeanwhile()
    {
        QFETCH_GLOBAL(bool, unnamed);
        StagedFile file(m_path);
        QVERIFY(file.create());
        QVERIFY(file.write("bytes"));
        if (unnamed)
            writeFile(m_path, "another's");
        QVERIFY(file.keep());
        QCOMPARE(contentOf(m_path), QByteArray("bytes"));
    }

    void failsWhereADirectoryStands()
    {
        QVERIFY(QDir().mkdir(m_path));
        StagedFile file(m_path);
        QVERIFY(!file.create() || !file.keep());
        QVERIFY(QFileInfo(m_path).isDir());
    }

    // One run per operation, which fails; among them are those that wait for the disk.
    void leavesNothingWhateverFails()
    {
        QFETCH_GLOBAL(bool, unnamed);
        const QString log = m_home->filePath(QStringLiteral("log"));
        qputenv("FAULT_LOG", QFile::encodeName(log));
        QVERIFY(staged());
        const QByteArrayList operations = contentOf(log).split('\n');
        QCOMPARE(std::ranges::count_if(operations, endsWith("fdatasync")), 1); // what was written
        QCOMPARE(std::ranges::count_if(operations, endsWith("fsync")), 2);     // it, and its name
        QCOMPARE(std::ranges::count_if(operations, endsWith("close")), 1);
        for (const QByteArray& operation : operations.first(operations.size() - 1)) {
            QVERIFY(QFile::remove(m_path));
            const int passed =
                contentOf(log).trimmed().split('\n').last().split(' ').first().toInt();
            const int first = operations.first().split(' ').first().toInt();
            const int point = passed + 1 + operation.split(' ').first().toInt() - first;
            qputenv("FAULT_AT", QByteArray::number(point));
            const bool harmless = operation.endsWith(" open unnamed");
            QVERIFY2(staged() == harmless, operation.constData());
            QVERIFY2(QFile::exists(m_path) == harmless, operation.constData());
            qunsetenv("FAULT_AT");
            QVERIFY(staged());
        }
        QVERIFY(operations.size() > (unnamed ? 7 : 6));
    }

    void isNotInherited()
    {
        StagedFile file(m_path);
        QVERIFY(file.create());
        QProcess child;
        child.start(QStringLiteral("/bin/ls"),
                    {QStringLiteral("-l"), QStringLiteral("/proc/self/fd")});
        QVERIFY(child.waitForFinished());
        const QByteArray open = child.readAllStandardOutput();
        QVERIFY(!open.isEmpty());
        QVERIFY2(!open.contains(QFile::encodeName(m_home->path())), open.constData());
    }

private:
    bool staged() const
    {
        StagedFile file(m_path);
        return file.create() && file.write("bytes") && file.keep();
    }
    static std::function<bool(const QByteArray&)> endsWith(const char* name)
    {
        return [ending = QByteArray(QByteArray(" ") + name)](const QByteArray& operation) {
            return operation.endsWith(ending);
        };
    }

    std::unique_ptr<QTemporaryDir> m_home;
    QString m_path;
};

QTEST_GUILESS_MAIN(TestStagedFile)
#include "tst_staged_file.moc"
