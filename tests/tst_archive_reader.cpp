#include "archive/archive_names.h"
#include "archive/archive_reader.h"
#include "tests/support/zip_builder.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr ArchiveLimits small = {4, 1'000};

} // namespace

// The rules by themselves; what they do to a launcher and a server is tst_hostile_archives' matter.
class TestArchiveReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsEntriesInOrder()
    {
        const QByteArray zip = ZipBuilder()
                                   .directory("a//.", 0750)
                                   .file("./a/b", "content", 04751)
                                   .link("a/c", "b")
                                   .bytes();
        ArchiveReader reader(ArchiveSource::memory(zip), ArchiveReader::Format::Zip, small);
        QVERIFY(reader.next());
        QCOMPARE(reader.name(), QByteArray("a"));
        QCOMPARE(reader.kind(), ArchiveReader::Kind::Directory);
        QCOMPARE(reader.mode(), 0750);
        QVERIFY(reader.next());
        QCOMPARE(reader.steps(), (QByteArrayList{"a", "b"}));
        QCOMPARE(reader.kind(), ArchiveReader::Kind::File);
        QCOMPARE(reader.mode(), 0751);
        QCOMPARE(reader.block().value_or("none"), QByteArrayView("content"));
        QVERIFY(reader.block().value_or("more").isEmpty());
        QVERIFY(reader.next());
        QCOMPARE(reader.kind(), ArchiveReader::Kind::Link);
        QCOMPARE(reader.target(), QByteArray("b"));
        QVERIFY(!reader.next());
        QCOMPARE(reader.fault(), QString());
    }

    void endsAtOnceWithoutEntries()
    {
        ArchiveReader reader(ArchiveSource::memory(ZipBuilder().bytes()),
                             ArchiveReader::Format::Zip, small);
        QVERIFY(!reader.next());
        QVERIFY(!reader.hasEntries());
        QCOMPARE(reader.fault(), QString());
    }

    void keepsToItsLimits_data()
    {
        QTest::addColumn<ZipBuilder>("builder");
        QTest::addColumn<QString>("fault");
        ZipBuilder zip;
        zip.file("1", {}).file("2", {}).file("3", {}).file("4", {});
        QTest::newRow("four entries") << zip << QString();
        QTest::newRow("five entries") << ZipBuilder(zip).file("4", {}) << u"more than 4 entries"_s;
        QTest::newRow("five directories")
            << ZipBuilder().file("1/2/3/4/5", {}) << u"more than 4 files and directories"_s;
        QTest::newRow("1,000 bytes")
            << ZipBuilder().file("1", QByteArray(900, 'x')).file("2", QByteArray(100, 'x'))
            << QString();
        QTest::newRow("1,001 bytes")
            << ZipBuilder().file("1", QByteArray(900, 'x')).file("2", QByteArray(101, 'x'))
            << u"unpacks to more"_s;
        ZipBuilder directory;
        for (int i = 0; i < 3'000; ++i)
            directory.raw({.name = QByteArray(200, 'x') + QByteArray::number(i), .at = 0});
        QTest::newRow("directory of 700,000 bytes") << directory << u"directory is too large"_s;
    }

    void keepsToItsLimits()
    {
        QFETCH(ZipBuilder, builder);
        QFETCH(QString, fault);
        ArchiveReader reader(ArchiveSource::memory(builder.bytes()), ArchiveReader::Format::Zip,
                             small);
        while (reader.next() && reader.skim()) {
        }
        QVERIFY2(fault.isEmpty() ? reader.fault().isEmpty() : reader.fault().contains(fault),
                 qPrintable(reader.fault()));
    }

    void stopsBetweenBlocksWhenCancelled()
    {
        QByteArray noise(2'000'000, '\0');
        for (qsizetype i = 0; i < noise.size(); ++i)
            noise[i] = static_cast<char>(i * i >> 7);
        bool cancelled = false;
        const QByteArray zip = ZipBuilder().file("long", noise).file("next", "x").bytes();
        ArchiveReader reader(ArchiveSource::memory(zip), ArchiveReader::Format::Zip,
                             archive_limits::runtime, [&cancelled] { return cancelled; });
        QVERIFY(reader.next());
        QVERIFY(reader.block());
        cancelled = true;
        QVERIFY(!reader.block());
        QVERIFY(!reader.next());
        QVERIFY(!reader.fault().isEmpty());
    }

    void saysWhyItCannotBeRead()
    {
        ArchiveReader reader(ArchiveSource::file(u"/nowhere/archive.zip"_s),
                             ArchiveReader::Format::Zip, small);
        QVERIFY(!reader.next());
        QVERIFY(reader.fault().startsWith(u"cannot be read: "));
    }
};

QTEST_GUILESS_MAIN(TestArchiveReader)
#include "tst_archive_reader.moc"
