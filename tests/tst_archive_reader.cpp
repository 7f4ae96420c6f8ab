#include "archive/archive_names.h"
#include "archive/archive_reader.h"
#include "tests/support/zip_builder.h"

#include <QRandomGenerator>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr ArchiveLimits small = {4, 1'000};

// Packs badly, the same bytes every time.
QByteArray noise(qsizetype size)
{
    QByteArray bytes(size, '\0');
    QRandomGenerator random(1);
    for (char& byte : bytes)
        byte = static_cast<char>(random.bounded(256));
    return bytes;
}

QString faultOf(const QByteArray& zip, const ArchiveLimits& limits)
{
    ArchiveReader reader(ArchiveSource::memory(zip), ArchiveReader::Format::Zip, limits);
    while (reader.next() && reader.skim()) {
    }
    return reader.fault();
}

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
        const QString found = faultOf(builder.bytes(), small);
        QVERIFY2(fault.isEmpty() ? found.isEmpty() : found.contains(fault), qPrintable(found));
    }

    void judgesNamesAndLinks_data()
    {
        QTest::addColumn<ZipBuilder>("builder");
        QTest::addColumn<QString>("fault");
        const QString tooLong = u"too long or too deep"_s;
        const QString elsewhere = u"leads elsewhere"_s;
        const QString out = u"leads out"_s;
        const QByteArray step = QByteArray(255, 's') + '/';
        const auto file = [](const QByteArray& name) { return ZipBuilder().file(name, {}); };
        QTest::newRow("1,024 bytes")
            << file(step.repeated(3) + QByteArray(256 - 2, 'n') + "/n") << QString();
        QTest::newRow("1,025 bytes")
            << file(step.repeated(3) + QByteArray(256 - 2, 'n') + "/nn") << tooLong;
        QTest::newRow("64 steps") << file(QByteArray("s/").repeated(63) + 'n') << QString();
        QTest::newRow("65 steps") << file(QByteArray("s/").repeated(64) + 'n') << tooLong;
        QTest::newRow("step of 255 bytes") << file(QByteArray(255, 'n')) << QString();
        QTest::newRow("step of 256 bytes") << file(QByteArray(256, 'n')) << tooLong;
        QTest::newRow("below a file") << file("a").file("a/b", {}) << elsewhere;
        QTest::newRow("below a link") << ZipBuilder().link("a", "b").file("a/b", {}) << elsewhere;
        QTest::newRow("a file and a link") << file("a").link("a", "b") << elsewhere;
        QTest::newRow("twice the same") << file("a").file("a", {}) << QString();
        QTest::newRow("link beside") << ZipBuilder().link("a/b", "../c") << QString();
        QTest::newRow("link above") << ZipBuilder().link("a/b", "../../c") << out;
        QTest::newRow("link that climbs late") << ZipBuilder().link("a/b", "c/../d") << out;
    }

    void judgesNamesAndLinks()
    {
        QFETCH(ZipBuilder, builder);
        QFETCH(QString, fault);
        const QString found = faultOf(builder.bytes(), archive_limits::jar);
        QVERIFY2(fault.isEmpty() ? found.isEmpty() : found.contains(fault), qPrintable(found));
    }

    // Beyond 64 MB an archive may unpack to a hundred times its size, and to no more.
    void measuresABombByTheArchive()
    {
        const QByteArray unpackable = noise(700'000);
        const auto archive = [&unpackable](qsizetype zeros) {
            return ZipBuilder().file("1", unpackable).file("2", QByteArray(zeros, '\0')).bytes();
        };
        const QByteArray honest = archive(68'000'000);
        QVERIFY(honest.size() > 690'000 && honest.size() < 800'000);
        QCOMPARE(faultOf(honest, archive_limits::jar), QString());
        QVERIFY(faultOf(archive(90'000'000), archive_limits::jar).contains(u"a hundred times"));
    }

    // What a directory may take is no bound on the data.
    void readsMoreDataThanADirectoryMayHave()
    {
        const QByteArray zip = ZipBuilder().file("1", noise(2'000'000)).bytes();
        QCOMPARE(faultOf(zip, {4, 4'000'000}), QString());
    }

    void findsTheEnd_data()
    {
        QTest::addColumn<QByteArray>("zip");
        const ZipBuilder one = ZipBuilder().file("1", "x");
        const auto commented = [one](const QByteArray& comment) {
            return ZipBuilder(one).comment(comment).bytes();
        };
        QTest::newRow("before the longest comment") << commented(QByteArray(65'535, 'c'));
        QTest::newRow("before a comment that holds ends")
            << commented(QByteArray("PK\x05\x06 no end").repeated(2'000));
        QByteArray uncounted = one.bytes();
        for (const qsizetype at : {8, 9, 10, 11}) // the number of entries, modulo 65,536
            uncounted[uncounted.size() - 22 + at] = '\0';
        QTest::newRow("that counts as many entries as it cannot count") << uncounted;
    }

    void findsTheEnd()
    {
        QFETCH(QByteArray, zip);
        ArchiveReader reader(ArchiveSource::memory(zip), ArchiveReader::Format::Zip, small);
        QVERIFY2(reader.next(), qPrintable(reader.fault()));
        QCOMPARE(reader.name(), QByteArray("1"));
        QVERIFY(reader.skim());
        QVERIFY(!reader.next());
        QCOMPARE(reader.fault(), QString());
    }

    void stopsBetweenBlocksWhenCancelled()
    {
        bool cancelled = false;
        const QByteArray zip =
            ZipBuilder().file("long", noise(2'000'000)).file("next", "x").bytes();
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
