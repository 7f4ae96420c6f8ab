#include "services/sha256.h"
#include "tests/support/files.h"
#include "versions/file_digests.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <stop_token>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype slice = 1024 * 1024;
// No file has it: who answers so has not read the file.
const auto remembered = u"remembered"_s;

FileStamp stampOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? FileStamp::of(file.handle()).value() : FileStamp();
}

} // namespace

// The memory of digests alone. When a file counts as changed is told in tst_jar_digests.
class TestFileDigests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        m_path = m_home->filePath(u"file"_s);
        m_digests = {};
        writeFile(m_path, "abc");
    }

    void answersFromMemoryUntilTheFileChanges()
    {
        m_digests.insert(m_path, {remembered, stampOf(m_path), true});
        QCOMPARE(m_digests.find(m_path), remembered);
        QCOMPARE(m_digests.read(m_path).sha256, remembered);
        writeFile(m_path, "abcd");
        QCOMPARE(m_digests.find(m_path), Sha256::of("abcd"));
        QCOMPARE(m_digests.read(m_path).sha256, Sha256::of("abcd"));
    }

    void knowsEachPathByItself()
    {
        const QString other = m_home->filePath(u"other"_s);
        writeFile(other, "other");
        m_digests.insert(m_path, {remembered, stampOf(m_path), true});
        QCOMPARE(m_digests.find(other), Sha256::of("other"));
    }

    void readsAtOnceOnlyWhatIsLittle()
    {
        writeFile(m_path, QByteArray(slice, 'x'));
        QCOMPARE(m_digests.find(m_path), Sha256::of(QByteArray(slice, 'x')));
        writeFile(m_path, QByteArray(slice + 1, 'x'));
        QCOMPARE(m_digests.find(m_path), std::nullopt);
        QCOMPARE(m_digests.read(m_path).sha256, Sha256::of(QByteArray(slice + 1, 'x')));
    }

    void forgetsWhatDoesNotLast()
    {
        const QString other = m_home->filePath(u"other"_s);
        writeFile(other, "other");
        m_digests.insert(m_path, {remembered, stampOf(m_path), false});
        m_digests.insert(other, {remembered, stampOf(other), true});
        QCOMPARE(m_digests.find(m_path), remembered);
        m_digests.forgetFleeting();
        QCOMPARE(m_digests.find(m_path), Sha256::of("abc"));
        QCOMPARE(m_digests.find(other), remembered);
    }

    // Just written: a change of the next moment might not show.
    void doesNotRelyOnAFreshFile() { QVERIFY(!m_digests.read(m_path).isLasting); }

    void hasNoDigestOfWhatCannotBeRead_data()
    {
        QTest::addColumn<QString>("what");
        QTest::newRow("missing") << u"missing"_s;
        QTest::newRow("directory") << u"directory"_s;
        QTest::newRow("pipe") << u"pipe"_s;
    }

    void hasNoDigestOfWhatCannotBeRead()
    {
        QFETCH(QString, what);
        QVERIFY(QFile::remove(m_path));
        if (what == u"directory")
            QVERIFY(QDir().mkdir(m_path));
        if (what == u"pipe")
            QCOMPARE(mkfifo(QFile::encodeName(m_path).constData(), 0600), 0);
        QCOMPARE(m_digests.find(m_path), QString());
        QCOMPARE(m_digests.read(m_path).sha256, QString());
    }

    void remembersNothingOfAStoppedReading()
    {
        std::stop_source stop;
        stop.request_stop();
        const FileDigests::Reading reading = m_digests.read(m_path, stop.get_token());
        QCOMPARE(reading.sha256, QString());
        m_digests.insert(m_path, reading);
        QCOMPARE(m_digests.find(m_path), Sha256::of("abc"));
    }

    // What makes a digest last that was known before the file was written.
    void showsEveryChangeOfASettledFile()
    {
        for (int i = 0; i < 50; ++i) {
            writeFile(m_path, "abc");
            const FileStamp before = stampOf(m_path);
            QVERIFY(before.settle());
            writeFile(m_path, "xyz");
            QVERIFY(stampOf(m_path) != before);
        }
    }

    void settlesNothingByACoarseClock()
    {
        FileStamp stamp = stampOf(m_path);
        stamp.changedNs -= stamp.changedNs % 1'000'000'000;
        QVERIFY(!stamp.settle());
    }

private:
    std::unique_ptr<QTemporaryDir> m_home;
    QString m_path;
    FileDigests m_digests;
};

QTEST_GUILESS_MAIN(TestFileDigests)
#include "tst_file_digests.moc"
