#include "services/staged_file.h"
#include "tests/support/files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

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

    void replacesAnOldFileAtTheStart()
    {
        writeFile(m_path, "old");
        StagedFile file(m_path);
        QVERIFY(file.create());
        QVERIFY(contentOf(m_path).isEmpty());
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
        QVERIFY(!file.create());
        QVERIFY(QFileInfo(m_path).isDir());
    }

    void leavesNothingWhenClosingFails()
    {
        QFETCH_GLOBAL(bool, unnamed);
        const QString log = m_home->filePath(QStringLiteral("log"));
        StagedFile file(m_path);
        QVERIFY(file.create());
        qputenv("FAULT_LOG", QFile::encodeName(log));
        QVERIFY(file.write("bytes"));
        // An unnamed file is linked to its name, where an old one is removed before.
        const int written = contentOf(log).split(' ').first().toInt();
        qputenv("FAULT_AT", QByteArray::number(written + (unnamed ? 3 : 1)));
        QVERIFY(!file.keep());
        QVERIFY(contentOf(log).contains(" close\n"));
        QVERIFY(!QFile::exists(m_path));
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
    std::unique_ptr<QTemporaryDir> m_home;
    QString m_path;
};

QTEST_GUILESS_MAIN(TestStagedFile)
#include "tst_staged_file.moc"
