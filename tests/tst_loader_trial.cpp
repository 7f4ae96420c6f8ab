#include "services/loader_trial.h"
#include "tests/support/heartbeat.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const auto loader = QStringLiteral(BUILDS_DIR "/programs/static");

} // namespace

// What the loader says is found in words; and with a loader that hangs, crashes, babbles or is not
// there.
class TestLoaderTrial : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_trial = std::make_unique<LoaderTrial>();
        m_finished = std::make_unique<QSignalSpy>(m_trial.get(), &LoaderTrial::finished);
    }
    void cleanup() { m_trial.reset(); }
    void findsWordsInWhatTheLoaderSays_data();
    void findsWordsInWhatTheLoaderSays();
    void takesTheAnswerFromTheEventLoop();
    void takesACrashForALack();
    void knowsNothingWithoutALoader();
    void keepsLittleOfALongAnswer();
    void givesUpALoaderThatHangs();
    void endsTheLoaderWithItself();

private:
    std::unique_ptr<LoaderTrial> m_trial;
    std::unique_ptr<QSignalSpy> m_finished;
};

void TestLoaderTrial::findsWordsInWhatTheLoaderSays_data()
{
    QTest::addColumn<QByteArray>("says");
    QTest::addColumn<QString>("lack");
    QTest::newRow("all is there")
        << QByteArray(
               "\tlibx.so.1 => /app/libx.so.1 (0x00007f)\n\tlibc.so.6 => /lib/libc.so.6 (0x1)\n")
        << QString();
    QTest::newRow("nothing") << QByteArray() << QString();
    QTest::newRow("a static program") << QByteArray("\tstatically linked\n") << QString();
    QTest::newRow("a missing library")
        << QByteArray("\tlibx.so.1 => not found\n\tlibc.so.6 => /lib/libc.so.6 (0x1)\n"
                      "undefined symbol: f\t(/app/program)\n")
        << u"libx.so.1 is missing"_s;
    QTest::newRow("an older library")
        << QByteArray("/app/program: /lib/libc.so.6: version `GLIBC_9.9' not found (required by "
                      "/app/program)\n")
        << u"libc.so.6 is too old (it has no GLIBC_9.9)"_s;
    QTest::newRow("a version that may be missing")
        << QByteArray("/app/program: /lib/libx.so.1: weak version `X_2' not found (required by "
                      "/app/program)\n")
        << QString();
    QTest::newRow("a library without versions")
        << QByteArray("/app/program: /lib/libx.so.1: no version information available (required by "
                      "/app/program)\n")
        << QString();
    QTest::newRow("a function") << QByteArray("undefined symbol: f, version X_2\t(/app/program)\n")
                                << u"no library has f"_s;
    QTest::newRow("a function that another library misses")
        << QByteArray("undefined symbol: f\t(/lib/libx.so.1)\n") << QString();
    QTest::newRow("a damaged library")
        << QByteArray("/app/program: error while loading shared libraries: /app/libx.so.1: invalid "
                      "ELF header\n")
        << u"libx.so.1: invalid ELF header"_s;
    QTest::newRow("a preloaded library that is ignored")
        << QByteArray("ERROR: ld.so: object 'libx.so' from LD_PRELOAD cannot be preloaded (cannot "
                      "open shared object file): ignored.\n")
        << QString();
    QTest::newRow("a name without end")
        << QByteArray("\t" + QByteArray(100'000, 'x') + " => not found\n")
        << QString(QString(120, u'x') + u" is missing");
}

void TestLoaderTrial::findsWordsInWhatTheLoaderSays()
{
    QFETCH(QByteArray, says);
    QFETCH(QString, lack);
    QCOMPARE(LoaderTrial::lackOf(u"/app/program"_s, says), lack);
}

void TestLoaderTrial::takesTheAnswerFromTheEventLoop()
{
    m_trial->start(loader, u"ends"_s);
    QCOMPARE(m_finished->count(), 0);
    QTRY_COMPARE(m_finished->count(), 1);
    QCOMPARE(m_finished->value(0).value(0).toString(), u"libx.so.1 is missing"_s);
}

// It would do the same when it starts the program; what it said before is half of its work.
void TestLoaderTrial::takesACrashForALack()
{
    m_trial->start(loader, u"crashes"_s);
    QTRY_COMPARE(m_finished->count(), 1);
    QCOMPARE(m_finished->value(0).value(0).toString(), u"the system's loader breaks off"_s);
}

void TestLoaderTrial::knowsNothingWithoutALoader()
{
    m_trial->start(u"/nowhere/loader"_s, u"ends"_s);
    QCOMPARE(m_finished->count(), 0);
    QTRY_COMPARE(m_finished->count(), 1);
    QCOMPARE(m_finished->value(0).value(0).toString(), QString());
}

// 25 MB, and what would be found in them last.
void TestLoaderTrial::keepsLittleOfALongAnswer()
{
    Heartbeat heartbeat(5);
    m_trial->start(loader, u"babbles"_s, 60'000);
    QTRY_COMPARE_WITH_TIMEOUT(m_finished->count(), 1, 60'000);
    QCOMPARE(m_finished->value(0).value(0).toString(), QString());
    QVERIFY2(heartbeat.longestProcessorMs() < 100,
             qPrintable(QString::number(heartbeat.longestProcessorMs())));
}

void TestLoaderTrial::givesUpALoaderThatHangs()
{
    Heartbeat heartbeat(5);
    QElapsedTimer clock;
    clock.start();
    m_trial->start(loader, u"hangs"_s, 300);
    QTRY_COMPARE(m_finished->count(), 1);
    QVERIFY(clock.elapsed() >= 300);
    QCOMPARE(m_finished->value(0).value(0).toString(), QString());
    QVERIFY2(heartbeat.longestProcessorMs() < 100,
             qPrintable(QString::number(heartbeat.longestProcessorMs())));
}

void TestLoaderTrial::endsTheLoaderWithItself()
{
    m_trial->start(loader, u"hangs"_s);
    const auto* process = m_trial->findChild<QProcess*>();
    QTRY_VERIFY(process->state() == QProcess::Running);
    const QString running = u"/proc/%1"_s.arg(process->processId());
    QVERIFY(QFile::exists(running));
    QElapsedTimer clock;
    clock.start();
    m_trial.reset();
    QVERIFY(clock.elapsed() < 5000);
    QVERIFY(!QFile::exists(running));
    QCOMPARE(m_finished->count(), 0);
}

QTEST_GUILESS_MAIN(TestLoaderTrial)
#include "tst_loader_trial.moc"
