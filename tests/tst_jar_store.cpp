#include "services/sha256.h"
#include "services/worker.h"
#include "tests/support/files.h"
#include "versions/jar_store.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype mega = 1024 * 1024;
// No jar has it: who answers by it has not read the jar.
const QString told(64, u'7');

} // namespace

class TestJarStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        m_jar = JarStore::pathBelow(m_home->path(), u"1"_s);
        m_log.clear();
        m_worker = std::make_unique<Worker>();
        m_store = std::make_unique<JarStore>(m_worker.get());
    }

    void cleanup()
    {
        m_store.reset();
        m_worker.reset();
    }

    void doesNotReadWhatItWrote()
    {
        const QByteArray body(8 * mega, 'x');
        m_store->write(m_jar, body, told, [this](bool opened) {
            log(opened ? u"written"_s : u"not opened"_s);
            log(answerOf(m_store->knownNeed(m_jar, told)));
        });
        QTRY_COMPARE(m_log, (QStringList{u"written"_s, u"up to date"_s}));
        QCOMPARE(contentOf(m_jar), body);
        QCOMPARE(answerOf(m_store->knownNeed(m_jar, told.toUpper())), u"up to date"_s);
        QVERIFY(!m_store->needsInstall(m_jar, told));
        // Nor at the next manifest.
        const GameVersion version{u"1"_s, {}, told, {}};
        JarStore::Readings readings;
        m_worker->run([read = m_store->reader(m_home->path()),
                       version](const std::stop_token& stop) { return read({version}, stop); },
                      [&readings](const JarStore::Readings& done) { readings = done; });
        QTRY_COMPARE(readings.value(m_jar).sha256, told);
    }

    void noticesWhatBecomesOfItAfterwards()
    {
        m_store->write(m_jar, "abc", Sha256::of("abc"), [this](bool) {
            writeFile(m_jar, "xyz"); // at once, and of the same size
            log(answerOf(m_store->knownNeed(m_jar, Sha256::of("abc"))));
        });
        QTRY_COMPARE(m_log, QStringList{u"needed"_s});
    }

    void isNotThereWhileItIsBeingWritten_data()
    {
        QTest::addColumn<QString>("sha256");
        QTest::newRow("with a digest") << told;
        QTest::newRow("without") << QString();
    }

    void isNotThereWhileItIsBeingWritten()
    {
        QFETCH(QString, sha256);
        writeFile(m_jar, "the old one");
        m_store->write(m_jar, QByteArray(8 * mega, 'x'), sha256,
                       [this](bool) { log(u"written"_s); });
        QVERIFY(m_store->needsInstall(m_jar, sha256));
        QCOMPARE(answerOf(m_store->knownNeed(m_jar, sha256)), u"unknown"_s);
        m_store->whenKnown(m_jar, sha256,
                           [this](bool needs) { log(needs ? u"needed"_s : u"up to date"_s); });
        QTRY_COMPARE(m_log, (QStringList{u"written"_s, u"up to date"_s}));
    }

    // One after the other, the later one last.
    void writesInTheOrderOfTheCalls()
    {
        m_store->write(m_jar, QByteArray(8 * mega, 'x'), {}, [this](bool) { log(u"one"_s); });
        m_store->write(m_jar, "abc", Sha256::of("abc"), [this](bool) { log(u"other"_s); });
        QTRY_COMPARE(m_log, (QStringList{u"one"_s, u"other"_s}));
        QCOMPARE(contentOf(m_jar), QByteArray("abc"));
        QVERIFY(!m_store->needsInstall(m_jar, Sha256::of("abc")));
    }

    void leavesNoHalfJarWhenTheProgramEnds()
    {
        m_store->write(m_jar, QByteArray(400 * mega, 'x'), {}, [this](bool) { log(u"written"_s); });
        while (!QFile::exists(m_jar))
            QTest::qSleep(1);
        QElapsedTimer closing;
        closing.start();
        cleanup();
        QVERIFY2(closing.elapsed() < 1'000, qPrintable(QString::number(closing.elapsed())));
        QVERIFY(!QFile::exists(m_jar));
        QCoreApplication::processEvents();
        QVERIFY(m_log.isEmpty());
    }

    void saysWhenItCannotOpenTheFile()
    {
        writeFile(QString(m_home->path() + u"/versions"), "in the way");
        for (const QString& path : {m_jar, QString(u"a"_s + QChar(QChar::Null))})
            m_store->write(path, "abc", {}, [this](bool opened) { log(QString::number(opened)); });
        QTRY_COMPARE(m_log, (QStringList{u"0"_s, u"0"_s}));
    }

    void answersAtOnceWhatIsKnown()
    {
        const auto answer = [this](bool needs) { log(needs ? u"needed"_s : u"up to date"_s); };
        m_store->whenKnown(m_jar, told, answer); // missing
        writeFile(m_jar, QByteArray(2 * mega, 'x'));
        m_store->whenKnown(m_jar, {}, answer); // not to be checked
        QCOMPARE(m_log, (QStringList{u"needed"_s, u"up to date"_s}));
        m_store->whenKnown(m_jar, told, answer);
        QCOMPARE(m_log.size(), 2);
        QTRY_COMPARE(m_log.size(), 3);
        QCOMPARE(m_log.last(), u"needed"_s);
    }

    // Who asks from within an answer is answered, too; one file that changes is not read for each.
    void answersEveryQuestionOnce()
    {
        const QString other = JarStore::pathBelow(m_home->path(), u"2"_s);
        for (const QString& path : {m_jar, other})
            writeFile(path, QByteArray(2 * mega, 'x'));
        const QString sha256 = Sha256::of(QByteArray(2 * mega, 'x'));
        const auto answer = [this](const QString& who) {
            return [this, who](bool needs) { log(QString(who + (needs ? u" needed" : u" not"))); };
        };
        m_store->whenKnown(m_jar, sha256, answer(u"first"_s));
        m_store->whenKnown(other, sha256, [&](bool) {
            log(u"other"_s);
            m_store->whenKnown(m_jar, told, answer(u"nested"_s));
        });
        m_store->whenKnown(m_jar, told, answer(u"second"_s));
        QTRY_COMPARE(m_log, (QStringList{u"first not"_s, u"second needed"_s, u"other"_s,
                                         u"nested needed"_s}));
    }

    void readsWhatIsInstalledAndHasADigest()
    {
        QList<GameVersion> versions;
        for (const QString& id : {u"1"_s, u"1"_s, u"2"_s, u"missing"_s}) {
            versions.append({id, {}, id == u"2" ? QString() : told, {}});
            if (id != u"missing")
                writeFile(JarStore::pathBelow(m_home->path(), id), "abc");
        }
        const auto read = m_store->reader(m_home->path());
        const JarStore::Readings readings = read(versions, {});
        QCOMPARE(readings.keys(), QStringList{m_jar});
        QCOMPARE(readings.value(m_jar).sha256, Sha256::of("abc"));
    }

private:
    void log(const QString& line) { m_log.append(line); }

    static QString answerOf(std::optional<bool> needs)
    {
        if (!needs)
            return u"unknown"_s;
        return *needs ? u"needed"_s : u"up to date"_s;
    }

    std::unique_ptr<QTemporaryDir> m_home;
    QString m_jar;
    QStringList m_log;
    std::unique_ptr<Worker> m_worker;
    std::unique_ptr<JarStore> m_store;
};

QTEST_GUILESS_MAIN(TestJarStore)
#include "tst_jar_store.moc"
