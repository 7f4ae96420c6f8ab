#include "tests/support/backend_process.h"
#include "tests/support/files.h"
#include "tests/support/raw_client.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QString built(const QString& name)
{
    return QStringLiteral(BUILDS_DIR "/") + name;
}

// A full archive: a program at its top, and the libraries of a release beside it.
QByteArray archiveOf(const QString& release, const QString& program = u"same"_s)
{
    ZipBuilder zip;
    zip.file("TessellanLauncher.exe", contentOf(built(u"programs/"_s + program)), 0755);
    const QDir libraries(built(release));
    for (const QString& name : libraries.entryList({u"*.so.1"_s}))
        zip.file(name.toUtf8(), contentOf(libraries.filePath(name)));
    return zip.bytes();
}

// Whether the loader starts a program with the libraries of a release.
bool starts(const QString& program, const QString& release)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LD_LIBRARY_PATH"_s, built(release));
    environment.insert(u"LD_BIND_NOW"_s, u"1"_s);
    process.setProcessEnvironment(environment);
    process.start(built(u"programs/"_s + program), QStringList());
    return process.waitForFinished() && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

} // namespace

// That no build is offered which would not start beside the libraries that players have. What the
// loader itself makes of each build stands beside what the server says.
class TestBackendBuilds : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void refusesWhatWouldNotStart_data();
    void refusesWhatWouldNotStart();
    void comparesWithTheArchiveThatIsNamed();
    void publishesByForceAndSaysWhatBreaks();
    void publishesWhereNothingIsKnown();
    void asksNoMoreOfTheSystemThanBefore();
    void refusesAnArchiveThatCannotBeRead();

private:
    BackendProcess::Run publish(const QString& file, const QStringList& more = {}) const
    {
        return m_backend->command(QStringList{u"publish"_s, u"launcher"_s, u"--file"_s, file} +
                                  more);
    }
    BackendProcess::Run publishBuild(const QString& name, const QStringList& more = {}) const
    {
        return publish(built(u"programs/"_s + name), QStringList{u"--version"_s, u"2.0"_s} + more);
    }
    void publishArchive(const QByteArray& bytes)
    {
        const QString path = m_files->filePath(u"full.zip"_s);
        writeFile(path, bytes);
        const auto run = publish(path, {u"--platform"_s, u"archive"_s});
        QVERIFY2(run.exitCode == 0, run.errors.constData());
    }
    QByteArray published() const { return m_backend->command({u"list"_s}).output; }

    std::unique_ptr<BackendProcess> m_backend;
    std::unique_ptr<QTemporaryDir> m_files;
};

void TestBackendBuilds::init()
{
    m_backend = std::make_unique<BackendProcess>();
    m_files = std::make_unique<QTemporaryDir>();
}

void TestBackendBuilds::refusesWhatWouldNotStart_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QByteArray>("reason"); // none: it starts
    QTest::newRow("the same libraries") << u"same"_s << QByteArray();
    QTest::newRow("a newer version of one")
        << u"version"_s << QByteArray("libversioned.so.1 there has no VERSIONED_2");
    QTest::newRow("a newer function of one without versions")
        << u"function"_s << QByteArray("no library there is known to have plainSecond");
    QTest::newRow("one library more")
        << u"library"_s << QByteArray("libextra.so.1 is neither there nor asked for so far");
}

void TestBackendBuilds::refusesWhatWouldNotStart()
{
    QFETCH(QString, program);
    QFETCH(QByteArray, reason);
    QCOMPARE(starts(program, u"1"_s), reason.isEmpty());
    QVERIFY(starts(program, u"2"_s));

    publishArchive(archiveOf(u"1"_s));
    for (const QString& platform : {u"linux"_s, u"generic"_s}) {
        const QByteArray before = published();
        const auto run = publishBuild(program, {u"--platform"_s, platform});
        QVERIFY2((run.exitCode == 0) == reason.isEmpty(), run.errors.constData());
        QCOMPARE(published() == before, !reason.isEmpty());
        QVERIFY2(run.errors.contains(reason), run.errors.constData());
        if (!reason.isEmpty())
            QVERIFY2(
                run.errors.contains("would not start where the published archive is installed"),
                run.errors.constData());
    }
}

void TestBackendBuilds::comparesWithTheArchiveThatIsNamed()
{
    // The next release's archive is out already; players still have the last one.
    publishArchive(archiveOf(u"2"_s, u"library"_s));
    const QString last = m_files->filePath(u"last release.zip"_s);
    writeFile(last, archiveOf(u"1"_s));
    const auto refused = publishBuild(u"library"_s, {u"--installed"_s, last});
    QCOMPARE(refused.exitCode, 1);
    QVERIFY2(refused.errors.contains(QByteArray("where " + last.toUtf8() + " is installed")),
             refused.errors.constData());
    QCOMPARE(publishBuild(u"same"_s, {u"--installed"_s, last}).exitCode, 0);
    QCOMPARE(publishBuild(u"library"_s).exitCode, 0);
}

void TestBackendBuilds::publishesByForceAndSaysWhatBreaks()
{
    publishArchive(archiveOf(u"1"_s));
    const auto run = publishBuild(u"library"_s, {u"--force"_s});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.errors.contains("libextra.so.1") && run.errors.contains("warning: "),
             run.errors.constData());
    QVERIFY(published().contains("launcher linux"));
}

void TestBackendBuilds::publishesWhereNothingIsKnown()
{
    QCOMPARE(publishBuild(u"library"_s).exitCode, 0); // no archive is published
    publishArchive(archiveOf(u"1"_s));
    const QString script = m_files->filePath(u"script"_s);
    writeFile(script, "#!/bin/sh\nexec true\n");
    QCOMPARE(publish(script, {u"--version"_s, u"2.1"_s}).exitCode, 0);
}

// Of the C library the next build may ask what the last one could have asked, and no newer version.
void TestBackendBuilds::asksNoMoreOfTheSystemThanBefore()
{
    ZipBuilder zip;
    zip.file("TessellanLauncher.exe", "no program: what it asks of the system is not known", 0755);
    publishArchive(zip.bytes());
    const auto run = publishBuild(u"same"_s);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains("libc.so.6"), run.errors.constData());
}

void TestBackendBuilds::refusesAnArchiveThatCannotBeRead()
{
    const QString damaged = m_files->filePath(u"damaged.zip"_s);
    writeFile(damaged, archiveOf(u"1"_s).left(5000));
    const auto run = publishBuild(u"same"_s, {u"--installed"_s, damaged});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains("damaged.zip: "), run.errors.constData());
    QCOMPARE(publishBuild(u"same"_s, {u"--installed"_s, u"/nowhere.zip"_s}).exitCode, 1);
}

QTEST_GUILESS_MAIN(TestBackendBuilds)
#include "tst_backend_builds.moc"
