#include "tests/support/elf_loader.h"
#include "tests/support/installed_probe.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <memory>

#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const auto ready = u"updateReady 1.0.17"_s;

QByteArray built(const QString& name)
{
    return contentOf(QStringLiteral(BUILDS_DIR "/") + name);
}

QByteArray program(const QString& name)
{
    return built(u"programs/"_s + name);
}

// As if for another processor.
QByteArray foreign(QByteArray program)
{
    program[offsetof(Elf64_Ehdr, e_machine)] = static_cast<char>(EM_S390);
    return program;
}

} // namespace

// Updates whose executable asks for more than the installation has: what the launcher says of each
// stands beside what becomes of it when it is started all the same.
class TestUpdateUnfit : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init();
    void cleanup() { m_probe.reset(); }
    void refusesWhatWouldNotStart_data();
    void refusesWhatWouldNotStart();
    void refusesItInAnArchive();
    void refusesItBelowAnyName();
    void endsTheLoaderWhenItEnds();
    void standsWheneverKilled();
    void takesWhatStartsOrCannotBeJudged_data();
    void takesWhatStartsOrCannotBeJudged();
    void asksTheLoaderWithThePlayersOwnPath();
    void isRunnableOnceTheLauncherHasEnded();

private:
    // The libraries of a release, beside the executable as an archive installs them.
    void install(const QString& release)
    {
        for (const QString& name : {u"libversioned.so.1"_s, u"libplain.so.1"_s}) {
            QFile library(m_probe->directory() + u'/' + name);
            QVERIFY(library.open(QIODevice::WriteOnly));
            library.write(built(release + u'/' + name));
        }
    }

    // Whether it ends well where it would be swapped in.
    bool starts(const QByteArray& build) const
    {
        const QString path = m_probe->directory() + u"/tried";
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(build) != build.size())
            return false;
        file.close();
        file.setPermissions(file.permissions() | QFile::ExeOwner);
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"LD_BIND_NOW"_s, u"1"_s);
        process.setProcessEnvironment(environment);
        process.start(path, QStringList());
        const bool ended = process.waitForFinished();
        QFile::remove(path);
        return ended && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    }

    void expectNothingStaged()
    {
        QVERIFY(!QFile::exists(m_probe->staged()));
        QVERIFY(!QFile::exists(m_probe->script()));
        QVERIFY(m_probe->end());
        QVERIFY(!QFile::exists(m_probe->script()));
        QVERIFY(m_probe->oldStands());
        QVERIFY(m_probe->oldStarts());
    }

    std::unique_ptr<InstalledProbe> m_probe;
};

void TestUpdateUnfit::init()
{
    m_probe = std::make_unique<InstalledProbe>();
    install(u"1"_s);
}

void TestUpdateUnfit::refusesWhatWouldNotStart_data()
{
    QTest::addColumn<QByteArray>("build");
    QTest::addColumn<QString>("lack");
    QTest::newRow("one library more") << program(u"library"_s) << u"libextra.so.1 is missing"_s;
    QTest::newRow("a newer version of one")
        << program(u"version"_s) << u"libversioned.so.1 is too old (it has no VERSIONED_2)"_s;
    QTest::newRow("a newer function of one without versions")
        << program(u"function"_s) << u"no library has plainSecond"_s;
    QTest::newRow("another C library") << withLoader(program(u"same"_s), "/lib/ld-none-x86_64.so.1")
                                       << u"/lib/ld-none-x86_64.so.1 is missing"_s;
    QTest::newRow("another processor")
        << foreign(program(u"same"_s)) << u"it is made for another machine"_s;
    QTest::newRow("cut short") << program(u"same"_s).left(4200) << u"its file is cut short"_s;
    QTest::newRow("cut in its head") << program(u"same"_s).left(100) << u"its file is cut short"_s;
}

void TestUpdateUnfit::refusesWhatWouldNotStart()
{
    QFETCH(QByteArray, build);
    QFETCH(QString, lack);
    QVERIFY(!starts(build));
    m_probe->offer(build);
    m_probe->run();
    QCOMPARE(m_probe->lines(), (QStringList{u"system's Qt"_s, u"updateAvailable 1.0.17"_s,
                                            QString(u"unfit 1.0.17: " + lack),
                                            u"updateFailed Could not stage update"_s}));
    QCOMPARE(m_probe->server().requestCount("/build"), 1);
    QVERIFY2(m_probe->longestGapMs() >= 0 && m_probe->longestGapMs() <= 100,
             qPrintable(QString::number(m_probe->longestGapMs())));
    expectNothingStaged();
}

// What it brings besides is in its place by then, as with every archive that fails.
void TestUpdateUnfit::refusesItInAnArchive()
{
    const QByteArray archive =
        ZipBuilder().file("TessellanLauncher.exe", program(u"library"_s)).bytes();
    m_probe->server().answer("/archive", HttpAnswer::ok(archive));
    m_probe->run({u"archive"_s, m_probe->server().url(u"/archive"_s),
                  QString::fromLatin1(sha256Of(archive))});
    QCOMPARE(m_probe->lines(), (QStringList{u"unfit archive: libextra.so.1 is missing"_s,
                                            u"updateFailed Could not stage full update"_s}));
    expectNothingStaged();
    // With the library it starts.
    const QByteArray whole = ZipBuilder()
                                 .file("TessellanLauncher.exe", program(u"library"_s))
                                 .file("libextra.so.1", built(u"2/libextra.so.1"_s))
                                 .bytes();
    m_probe = std::make_unique<InstalledProbe>();
    install(u"2"_s);
    m_probe->server().answer("/archive", HttpAnswer::ok(whole));
    m_probe->run(
        {u"archive"_s, m_probe->server().url(u"/archive"_s), QString::fromLatin1(sha256Of(whole))});
    QCOMPARE(m_probe->lines(), QStringList{u"updateReady"_s});
}

void TestUpdateUnfit::refusesItBelowAnyName()
{
    for (const QString& name : {u"two\nlines"_s, u"a => not found"_s, u"$ORIGIN (x) %1 Änne"_s}) {
        m_probe = std::make_unique<InstalledProbe>(name);
        install(u"1"_s);
        m_probe->offer(program(u"function"_s));
        m_probe->run();
        QVERIFY2(m_probe->lines().contains(u"unfit 1.0.17: no library has plainSecond"_s),
                 qPrintable(m_probe->lines().join(u'\n')));
        m_probe = std::make_unique<InstalledProbe>(name);
        install(u"1"_s);
        m_probe->offer(program(u"same"_s));
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), ready);
    }
}

// A library that is a pipe without a writer holds the loader, as a disk would that hangs.
void TestUpdateUnfit::endsTheLoaderWhenItEnds()
{
    const QString pipe = m_probe->directory() + u"/libextra.so.1";
    QCOMPARE(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    m_probe->offer(program(u"library"_s));
    m_probe->start();
    QTRY_VERIFY(QFile::exists(m_probe->staged()));
    const QString children = u"/proc/%1/task/%1/children"_s.arg(m_probe->process().processId());
    QTRY_VERIFY(!contentOf(children).isEmpty());
    const QString loader = u"/proc/"_s + QString::fromLatin1(contentOf(children).trimmed());
    QTRY_VERIFY(contentOf(loader + u"/cmdline").contains("ld-linux"));
    QElapsedTimer clock;
    clock.start();
    QVERIFY(m_probe->end());
    QVERIFY(clock.elapsed() < 5000);
    QVERIFY(!QFile::exists(loader));
    QVERIFY(!QFile::exists(m_probe->staged()));
    QVERIFY(!QFile::exists(m_probe->script()));
    QVERIFY(m_probe->oldStands());
}

// One run per file operation, right before which the launcher is killed.
void TestUpdateUnfit::standsWheneverKilled()
{
    int killed = 0;
    for (int point = 1;; ++point) {
        init();
        m_probe->offer(program(u"library"_s));
        m_probe->setPoint(u"KILL_AT"_s, point);
        m_probe->run();
        if (m_probe->operations().size() < point)
            break;
        ++killed;
        QCOMPARE(m_probe->process().exitStatus(), QProcess::CrashExit);
        QVERIFY(!QFile::exists(m_probe->script()));
        QVERIFY(m_probe->oldStands());
        // The next start clears away what the dead one left.
        m_probe->setVariable(u"KILL_AT"_s, {});
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), u"updateFailed Could not stage update"_s);
        expectNothingStaged();
    }
    QVERIFY2(killed >= 7, qPrintable(QString::number(killed)));
    qInfo("%d kills", killed);
}

void TestUpdateUnfit::takesWhatStartsOrCannotBeJudged_data()
{
    QTest::addColumn<QByteArray>("build");
    QTest::newRow("the same libraries") << program(u"same"_s);
    QTest::newRow("a static program") << program(u"static"_s);
    QTest::newRow("a script") << QByteArray("#!/bin/sh\nexit 0\n");
    QTest::newRow("one byte") << QByteArray("x");
    QTest::newRow("what only begins like a program") << QByteArray("\x7f"
                                                                   "ELF is a file format\n");
    QTest::newRow("the beginning alone") << QByteArray("\x7f"
                                                       "ELF");
    QTest::newRow("a loader of its own")
        << withLoader(program(u"library"_s), BUILDS_DIR "/programs/static");
    QTest::newRow("a library") << built(u"1/libplain.so.1"_s);
}

void TestUpdateUnfit::takesWhatStartsOrCannotBeJudged()
{
    QFETCH(QByteArray, build);
    m_probe->offer(build);
    m_probe->run();
    QCOMPARE(m_probe->lines(), (QStringList{u"system's Qt"_s, u"updateAvailable 1.0.17"_s, ready}));
    QCOMPARE(contentOf(m_probe->staged()), build);
    QVERIFY(QFile::exists(m_probe->script()));
}

// The script starts the new launcher with the environment of the old one.
void TestUpdateUnfit::asksTheLoaderWithThePlayersOwnPath()
{
    const QString directory = m_probe->temporaryDirectory() + u"/libraries";
    QVERIFY(QDir().mkpath(directory));
    QFile library(directory + u"/libextra.so.1");
    QVERIFY(library.open(QIODevice::WriteOnly));
    library.write(built(u"2/libextra.so.1"_s));
    library.close();
    m_probe->setVariable(u"LD_LIBRARY_PATH"_s, directory);
    m_probe->offer(program(u"library"_s));
    m_probe->run();
    QCOMPARE(m_probe->lastLine(), ready);
}

// Not before: that is the script's, and until then somebody may still look at what was staged.
void TestUpdateUnfit::isRunnableOnceTheLauncherHasEnded()
{
    m_probe->offer("#!/bin/sh\nexit 0\n");
    m_probe->run();
    QCOMPARE(m_probe->lastLine(), ready);
    const auto runs = QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    QVERIFY(!(QFile::permissions(m_probe->staged()) & runs));
    // A second name, because the script takes the first away.
    const QString link = m_probe->temporaryDirectory() + u"/also staged";
    QCOMPARE(::link(QFile::encodeName(m_probe->staged()).constData(),
                    QFile::encodeName(link).constData()),
             0);
    QVERIFY(m_probe->end());
    QVERIFY(QFile::permissions(link) & QFile::ExeOwner);
}

QTEST_GUILESS_MAIN(TestUpdateUnfit)
#include "tst_update_unfit.moc"
