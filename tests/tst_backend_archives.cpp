#include "backend/catalogue/archives.h"

#include "tests/support/zip_builder.h"

#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

// Archives that are well formed to look at, but not what the launcher could unpack.
class TestBackendArchives : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsEveryByteOfJar();
    void judgesEveryEntryOfRuntime_data();
    void judgesEveryEntryOfRuntime();

private:
    QTemporaryDir m_files;
};

namespace {

const QByteArray manifest = "Manifest-Version: 1.0\n";

} // namespace

void TestBackendArchives::readsEveryByteOfJar()
{
    const QString path = m_files.filePath(u"game.jar"_s);
    ZipBuilder jar;
    jar.file("META-INF/MANIFEST.MF", manifest).file("a.class", "code");
    QVERIFY(jar.write(path));
    QVERIFY(archives::checkJar(path));
    QVERIFY(jar.withWrongChecksums().file("b.class", "code").write(path));
    const auto damaged = archives::checkJar(path);
    QVERIFY(!damaged);
    QVERIFY2(damaged.refusal().error.startsWith("game.jar: is damaged"_L1),
             qPrintable(damaged.refusal().error));
}

void TestBackendArchives::judgesEveryEntryOfRuntime_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("fault");
    const auto runtime = [] { return ZipBuilder::runtime("jdk-11", "#!/bin/sh\n"); };
    QTest::newRow("whole") << runtime().link("jdk-11/lib/java", "../bin/java").bytes() << u""_s;
    QTest::newRow("device") << runtime().special("jdk-11/null", S_IFCHR | 0666).bytes()
                            << u"is neither a file, a directory nor a link"_s;
    // "bin" could be a link itself; then ".." would lead anywhere.
    QTest::newRow("link that climbs later")
        << runtime().link("jdk-11/java", "bin/../x").bytes() << u"leads out of the archive"_s;
}

void TestBackendArchives::judgesEveryEntryOfRuntime()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, fault);
    const QString path = m_files.filePath(u"runtime.zip"_s);
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
    file.close();
    const auto zip = archives::runtimeAsZip(path, m_files.filePath(u"packed.zip"_s));
    const QString error = zip ? QString() : zip.refusal().error;
    QVERIFY2(fault.isEmpty() ? bool(zip) : error.contains(fault), qPrintable(error));
}

QTEST_GUILESS_MAIN(TestBackendArchives)
#include "tst_backend_archives.moc"
