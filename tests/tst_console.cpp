#include "app/settings.h"
#include "tests/support/files.h"
#include "tests/support/heartbeat.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/console.h"
#include "ui/foreign_text.h"
#include "ui/main_window.h"
#include "ui/style_sheet.h"
#include "versions/version_manager.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QPaintEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextBlock>

#include <chrono>

using namespace Qt::StringLiterals;

namespace {

// The console as it is described: a bare text widget that is handed line after line.
class LineByLine : public QPlainTextEdit
{
public:
    LineByLine() { setMaximumBlockCount(5000); }
    void append(const QString& line) { appendPlainText(foreign_text::consoleBlock(line)); }
};

// Ordinary lines, and now and then one with something in it that must not make two of it.
QString lineNumber(int i)
{
    if (i % 997 == 0)
        return QString(30'000, u'x');
    if (i % 499 == 0)
        return u"one\ntwo\rthree\u2029four\u2028five \U0001F600 "_s + QChar(QChar::Null);
    return u"[12:00:00] [main/INFO]: line %1 of the game"_s.arg(i);
}

// What the window behind it has to paint along with a widget.
class PaintsBehind : public QObject
{
public:
    explicit PaintsBehind(const QWidget* front) : m_front(front) { qApp->installEventFilter(this); }

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        auto* widget = qobject_cast<QWidget*>(watched);
        if (event->type() != QEvent::Paint || !widget || widget == m_front ||
            !widget->isAncestorOf(m_front))
            return false;
        const QRect front(m_front->mapTo(widget, QPoint()), m_front->size());
        if (static_cast<QPaintEvent*>(event)->region().intersects(front))
            ++count;
        return false;
    }

    int count = 0;

private:
    const QWidget* m_front;
};

} // namespace

// What a game prints, however much and however fast.
class TestConsole : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->storeSession();
    }
    void cleanup() { m_driver.reset(); }

    void holdsWhatOneCallForEachLineWould_data()
    {
        QTest::addColumn<int>("lines");
        QTest::addColumn<int>("atOnce");
        QTest::newRow("a line") << 1 << 1;
        QTest::newRow("one by one") << 5'600 << 1;
        QTest::newRow("what a pipe holds") << 16'000 << 1'300;
        QTest::newRow("as many as it keeps") << 10'000 << 5'000;
        QTest::newRow("one more") << 10'002 << 5'001;
        QTest::newRow("several times as many") << 40'000 << 20'000;
        QTest::newRow("less and less") << 12'000 << -1;
    }

    void holdsWhatOneCallForEachLineWould()
    {
        QFETCH(int, lines);
        QFETCH(int, atOnce);
        open();
        LineByLine bare;
        for (int i = 0; i < lines;) {
            const int end = qMin(lines, i + (atOnce > 0 ? atOnce : (lines - i + 1) / 2));
            for (; i < end; ++i) {
                const QString line = lineNumber(i);
                bare.append(line);
                console()->addLine(line, end - i - 1);
            }
            QCOMPARE(console()->blockCount(), bare.blockCount());
            QVERIFY(console()->toPlainText() == bare.toPlainText());
            if (i % 3 == 0)
                QTest::qWait(0);
        }
        QCOMPARE(console()->document()->toRawText(), bare.document()->toRawText());
    }

    void takesLinesOneByOneAtOnce()
    {
        open();
        LineByLine bare;
        for (int i = 0; i < 300; ++i) {
            Q_EMIT m_driver->versions().gameLog(lineNumber(i));
            bare.append(lineNumber(i));
            QCOMPARE(console()->toPlainText(), bare.toPlainText());
            QCOMPARE(bar()->value(), bar()->maximum());
        }
        QVERIFY(bar()->maximum() > 200);
    }

    void keepsTheReadersPlace_data()
    {
        QTest::addColumn<int>("atOnce");
        QTest::addColumn<bool>("wrapped");
        for (const int atOnce : {1, 10, 300}) {
            for (const bool wrapped : {false, true}) {
                const QString name =
                    u"%1 lines at once%2"_s.arg(atOnce).arg(wrapped ? u", wrapped" : u"");
                QTest::newRow(qPrintable(name)) << atOnce << wrapped;
            }
        }
    }

    void keepsTheReadersPlace()
    {
        QFETCH(int, atOnce);
        QFETCH(bool, wrapped);
        open();
        const auto add = [&](int from, int to) {
            for (int i = from; i < to; ++i)
                console()->addLine(u"line %1 "_s.arg(i).repeated(wrapped ? 30 : 1),
                                   (to - i - 1) % atOnce);
            QTest::qWait(0);
        };
        add(0, 5'000);
        bar()->setValue(2'500);
        QTest::qWait(0);
        const QString read = topLine();
        QVERIFY(read.startsWith(u"line "));
        const int block = console()->cursorForPosition(QPoint(1, 1)).blockNumber();
        add(5'000, 6'200);
        QCOMPARE(topLine(), read);
        QCOMPARE(console()->cursorForPosition(QPoint(1, 1)).blockNumber(), block - 1'200);
        // What the reader looks at falls out at last.
        add(6'200, 9'800);
        QCOMPARE(topLine(), console()->document()->firstBlock().text());
        QCOMPARE(bar()->value(), 0);
    }

    void followsTheEndWhileItIsInView()
    {
        open();
        const auto add = [this](int lines) {
            for (int i = 0; i < lines; ++i)
                console()->addLine(u"line %1"_s.arg(i), lines - i - 1);
        };
        for (const int lines : {1, 3, 40, 400, 6'000, 1}) {
            add(lines);
            QCOMPARE(bar()->value(), bar()->maximum());
        }
        QTest::qWait(0);
        QVERIFY(console()->cursorRect().bottom() <= console()->viewport()->height());
        bar()->setValue(bar()->maximum() - 3);
        const int read = bar()->value();
        add(1);
        QCOMPARE(bar()->value(), read - 1); // a line fell out above
        bar()->setValue(bar()->maximum());
        add(10);
        QCOMPARE(bar()->value(), bar()->maximum());
    }

    // Their layout takes another width, and so another height, when the scroll bar appears.
    void followsTheEndOfLongLines()
    {
        open();
        for (int i = 0; i < 5; ++i) {
            console()->addLine(QString(20'000, u'x'), 0);
            QTest::qWait(20);
            console()->addLine(u"line"_s, 0);
            QCOMPARE(bar()->value(), bar()->maximum());
        }
        const int before = console()->width();
        m_driver->window().resize(900, 600);
        QTRY_VERIFY(console()->width() < before);
        QCOMPARE(bar()->value(), bar()->maximum());
    }

    void keepsWhatIsSelected()
    {
        open();
        for (int i = 0; i < 5'000; ++i)
            console()->addLine(u"line %1"_s.arg(i), 4'999 - i);
        QTextCursor cursor(console()->document()->findBlockByNumber(3'000));
        cursor.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
        console()->setTextCursor(cursor);
        for (int i = 0; i < 2'000; ++i)
            console()->addLine(u"more %1"_s.arg(i), i % 7);
        QCOMPARE(console()->textCursor().selectedText(), u"line 3000"_s);
    }

    void showsAFloodToItsEnd_data()
    {
        QTest::addColumn<QByteArray>("game");
        QTest::newRow("short lines") << QByteArray("seq 30000");
        QTest::newRow("lines") << QByteArray("yes 'what a game says in a line' | head -n 40000");
        QTest::newRow("in pieces") << QByteArray("i=0; while [ $i -lt 3000 ]; do echo line $i; "
                                                 "i=$((i+1)); done");
        QTest::newRow("no line") << QByteArray("head -c 3000000 /dev/zero | tr '\\0' x");
    }

    void showsAFloodToItsEnd()
    {
        QFETCH(QByteArray, game);
        LineByLine bare;
        start(game + "\nexit 3");
        connect(&m_driver->versions(), &VersionManager::gameLog, &bare, &LineByLine::append);
        // Whatever was printed is there when the end is told.
        QString atEnd;
        connect(&m_driver->versions(), &VersionManager::gameExited, this,
                [&] { atEnd = console()->toPlainText(); });
        playToTheEnd();
        QVERIFY(atEnd == bare.toPlainText());
        QCOMPARE(m_driver->consoleLines().last(), u"process exited (code 3)"_s);
        QCOMPARE(bar()->value(), bar()->maximum());
    }

    void neverHoldsTheWindow_data()
    {
        QTest::addColumn<QByteArray>("game");
        QTest::newRow("very short lines") << QByteArray("yes | head -c 2000000");
        QTest::newRow("short lines") << QByteArray("seq 400000");
        QTest::newRow("lines") << QByteArray("yes 'what a game says in a line, it seems' | "
                                             "head -c 4000000");
        QTest::newRow("long lines")
            << QByteArray("yes $(head -c 3000 /dev/zero | tr '\\0' x) | head -c 10000000");
        QTest::newRow("no line") << QByteArray("head -c 10000000 /dev/zero | tr '\\0' x");
    }

    // On the processor's clock, where a busy machine has no part in it.
    void neverHoldsTheWindow()
    {
        QFETCH(QByteArray, game);
        start(game);
        Heartbeat heartbeat(5);
        playToTheEnd();
        qInfo("longest gap: %lld ms", heartbeat.longestProcessorMs());
        QVERIFY2(heartbeat.longestProcessorMs() < maxGapMs,
                 qPrintable(QString::number(heartbeat.longestProcessorMs())));
    }

    void paintsNothingBehindALine()
    {
        open();
        for (int i = 0; i < 100; ++i)
            console()->addLine(lineNumber(i), 99 - i);
        QTest::qWait(50);
        const PaintsBehind paints(console()->viewport());
        for (int i = 0; i < 20; ++i) {
            Q_EMIT m_driver->versions().gameLog(lineNumber(i));
            QTest::qWait(0);
        }
        QCOMPARE(paints.count, 0);
    }

    void isNoDarkerThanItsFrame()
    {
        open();
        Q_EMIT m_driver->versions().gameLog(u"one"_s);
        QTest::qWait(20);
        const QImage image = console()->grab().toImage();
        const QPoint inside = image.rect().center();
        QCOMPARE(image.pixelColor(inside), QColor(0x0d, 0x11, 0x19));
        QCOMPARE(image.pixelColor(inside.x(), image.height() - 3), image.pixelColor(inside));
    }

    void endsAtOnceDuringOutput()
    {
        start("exec yes what a game says");
        QSignalSpy lines(&m_driver->versions(), &VersionManager::gameLog);
        m_driver->click(m_driver->play());
        QTRY_VERIFY(lines.size() > 20'000);
        QElapsedTimer clock;
        clock.start();
        m_driver->close();
        QVERIFY2(clock.elapsed() < maxEndMs, qPrintable(QString::number(clock.elapsed())));
    }

private:
#ifdef __SANITIZE_ADDRESS__
    static constexpr qint64 maxGapMs = 150;
    static constexpr qint64 maxEndMs = 500;
#else
    static constexpr qint64 maxGapMs = 50;
    static constexpr qint64 maxEndMs = 100;
#endif

    // The window with its console open.
    void open()
    {
        m_driver->open();
        m_driver->click("consoleButton");
        QTest::qWait(0);
    }

    Console* console() { return static_cast<Console*>(m_driver->findWidget("console")); }
    QScrollBar* bar() { return console()->verticalScrollBar(); }
    QString topLine() { return console()->cursorForPosition(QPoint(1, 1)).block().text(); }

    // An installed version whose java is a shell script.
    void start(const QByteArray& commands)
    {
        const QString java = throwaway_home::path() + u"/game-java";
        writeScript(java, commands);
        Settings::get().setJavaPath(java);
        const GameVersion version = m_driver->serveVersion(u"1.0"_s, "jar");
        m_driver->serveManifest({version});
        writeFile(VersionManager().jarPath(version.id), "jar");
        m_driver->openAndWait();
    }

    void playToTheEnd()
    {
        QSignalSpy exited(&m_driver->versions(), &VersionManager::gameExited);
        m_driver->click(m_driver->play());
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 1, 60'000);
    }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestConsole)
#include "tst_console.moc"
