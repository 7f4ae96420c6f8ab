#include "services/sha256.h"
#include "tests/support/files.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <stop_token>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr qsizetype mega = 1024 * 1024;

// The control: another implementation.
QString qtsDigestOf(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

} // namespace

class TestSha256 : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void knowsTheStandardsExamples_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QString>("digest");
        QTest::newRow("nothing")
            << QByteArray()
            << QStringLiteral("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
        QTest::newRow("abc")
            << QByteArray("abc")
            << QStringLiteral("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
        QTest::newRow("a million times a")
            << QByteArray(1'000'000, 'a')
            << QStringLiteral("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    }

    void knowsTheStandardsExamples()
    {
        QFETCH(QByteArray, data);
        QFETCH(QString, digest);
        QCOMPARE(Sha256::of(data), digest);
    }

    void addsPieceByPiece()
    {
        Sha256 hash;
        for (const QByteArray& piece : {QByteArray("a"), QByteArray(), QByteArray("bc")})
            hash.add(piece);
        QCOMPARE(hash.result(), Sha256::of("abc"));
    }

    void readsFiles_data()
    {
        QTest::addColumn<qsizetype>("size");
        QTest::newRow("empty") << qsizetype{0};
        QTest::newRow("a byte") << qsizetype{1};
        QTest::newRow("a slice") << mega;
        QTest::newRow("more than a slice") << mega + 1;
        QTest::newRow("several slices") << 3 * mega;
    }

    void readsFiles()
    {
        QFETCH(qsizetype, size);
        const QByteArray content(size, 'x');
        writeFile(m_path, content);
        QCOMPARE(digestOfFile(), qtsDigestOf(content));
    }

    void readsFromWhereTheFileStands()
    {
        writeFile(m_path, "abcabc");
        QFile file(m_path);
        QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) && file.seek(3));
        QCOMPARE(Sha256::ofFile(file.handle()), Sha256::of("abc"));
    }

    void hasNoDigestOfWhatCannotBeRead()
    {
        QCOMPARE(Sha256::ofFile(-1), QString());
        const int directory = open(QFile::encodeName(m_home.path()).constData(), O_RDONLY);
        QVERIFY(directory >= 0);
        QCOMPARE(Sha256::ofFile(directory), QString());
        close(directory);
    }

    void hasNoDigestWhenItIsStopped()
    {
        writeFile(m_path, "abc");
        std::stop_source stop;
        QCOMPARE(digestOfFile(stop.get_token()), Sha256::of("abc"));
        stop.request_stop();
        QCOMPARE(digestOfFile(stop.get_token()), QString());
    }

    void comparesInAnyLetterCase_data()
    {
        QTest::addColumn<QString>("other");
        QTest::addColumn<bool>("same");
        const QString digest = Sha256::of("abc");
        QTest::newRow("itself") << digest << true;
        QTest::newRow("upper case") << digest.toUpper() << true;
        QTest::newRow("its beginning") << digest.chopped(1) << false;
        QTest::newRow("longer") << QString(digest + u'0') << false;
        QTest::newRow("another end") << QString(digest.chopped(1) + u'e') << false;
        QTest::newRow("with a blank") << QString(u' ' + digest) << false;
        QTest::newRow("nothing") << QString() << false;
    }

    void comparesInAnyLetterCase()
    {
        QFETCH(QString, other);
        QFETCH(bool, same);
        QCOMPARE(Sha256::areSame(Sha256::of("abc"), other), same);
        QCOMPARE(Sha256::areSame(other, Sha256::of("abc")), same);
    }

private:
    QString digestOfFile(const std::stop_token& stop = {}) const
    {
        QFile file(m_path);
        return file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)
                   ? Sha256::ofFile(file.handle(), stop)
                   : QStringLiteral("not open");
    }

    QTemporaryDir m_home;
    QString m_path = m_home.filePath(QStringLiteral("file"));
};

QTEST_GUILESS_MAIN(TestSha256)
#include "tst_sha256.moc"
