#include "services/zip.h"
#include "tests/support/files.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

#include <sys/stat.h>

namespace {

constexpr int mega = 1024 * 1024;
const auto kept = QStringLiteral("Program.exe");

} // namespace

// Archives unpacked over a directory, but for one file.
class TestZipOver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir().mkdir(destination()));
    }

    void returnsTheFileAndUnpacksTheRest()
    {
        QCOMPARE(extract(ZipBuilder().file("a/b", "rest").file("program.EXE", "the program")),
                 QByteArray("the program"));
        QCOMPARE(contentOf(unpacked("a/b")), QByteArray("rest"));
        QCOMPARE(namesIn(destination()), QStringList{QStringLiteral("a")});
    }

    void takesNoLinkForTheFile()
    {
        QCOMPARE(extract(ZipBuilder().file("Program.exe", "the program").link("program.EXE", "x")),
                 QByteArray("the program"));
    }

    void followsALinkToTheDestination()
    {
        QVERIFY(QFile::link(destination(), m_home->filePath(QStringLiteral("way"))));
        const auto program = extract(archive(), m_home->filePath(QStringLiteral("way")));
        QCOMPARE(program, QByteArray("the program"));
        QCOMPARE(contentOf(unpacked("file")), QByteArray("content"));
    }

    void refusesMissingPlaces()
    {
        QVERIFY(!extract(archive(), m_home->filePath(QStringLiteral("nowhere"))));
        QVERIFY(!QFile::exists(m_home->filePath(QStringLiteral("nowhere"))));
    }

    void leavesTheDirectoryItselfAsItIs()
    {
        QCOMPARE(chmod(QFile::encodeName(destination()).constData(), 0750), 0);
        QVERIFY(extract(archive().directory(".", 0777)));
        struct stat info = {};
        QCOMPARE(stat(QFile::encodeName(destination()).constData(), &info), 0);
        QCOMPARE(info.st_mode & 07777, mode_t{0750});
    }

    void refusesBombs_data()
    {
        QTest::addColumn<ZipBuilder>("builder");
        const QByteArray zeros(70 * mega, '\0');
        QTest::newRow("the file") << ZipBuilder().file("Program.exe", zeros);
        QTest::newRow("another file") << archive().file("zeros", zeros);
    }

    void refusesBombs()
    {
        QFETCH(ZipBuilder, builder);
        QVERIFY(!extract(builder));
        QVERIFY(!QFile::exists(unpacked("zeros")));
        QVERIFY(!QFile::exists(unpacked("zeros.part")));
    }

    void acceptsSmallFilesThatPackWell()
    {
        const QByteArray zeros(10 * mega, '\0');
        const auto program = extract(ZipBuilder().file("zeros", zeros).file("Program.exe", zeros));
        QVERIFY(program == zeros);
        QCOMPARE(QFileInfo(unpacked("zeros")).size(), zeros.size());
    }

    // What was read of it until then is no program.
    void refusesALongFileWithAWrongChecksum()
    {
        const QByteArray longFile(mega, 'x');
        QVERIFY(!extract(ZipBuilder().withWrongChecksums().file("Program.exe", longFile)));
        QVERIFY(!extract(archive().withWrongChecksums().file("file", longFile)));
        QCOMPARE(contentOf(unpacked("file")), QByteArray("content"));
    }

    void refusesMoreEntriesThanAnHonestArchiveHas()
    {
        ZipBuilder builder = archive();
        for (int i = 0; i <= 100'000; ++i)
            builder.directory("d");
        QVERIFY(!extract(builder));
    }

private:
    static ZipBuilder archive()
    {
        return ZipBuilder().file("Program.exe", "the program").file("file", "content");
    }
    QString destination() const { return m_home->filePath(QStringLiteral("inside")); }
    QString unpacked(const char* name) const
    {
        return QString(destination() + u'/' + QString::fromLatin1(name));
    }
    std::optional<QByteArray> extract(const ZipBuilder& builder) const
    {
        return extract(builder, destination());
    }
    static std::optional<QByteArray> extract(const ZipBuilder& builder, const QString& destination)
    {
        zip::UnpackingOver unpacking(kept, builder.bytes(), destination);
        while (unpacking.step() == zip::UnpackingOver::State::Working) {
        }
        return unpacking.kept();
    }

    std::unique_ptr<QTemporaryDir> m_home;
};

QTEST_GUILESS_MAIN(TestZipOver)
#include "tst_zip_over.moc"
