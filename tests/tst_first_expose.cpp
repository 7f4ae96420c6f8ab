#include "ui/first_expose.h"

#include <QPointer>
#include <QTest>
#include <QWidget>
#include <QWindow>

#include <memory>

class TestFirstExpose : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void comesOnceWhenTheWindowIsThere()
    {
        QWidget window;
        window.resize(200, 100);
        window.createWinId();
        int exposed = 0;
        int times = 0;
        const QPointer<FirstExpose> first = new FirstExpose(&window, [&] {
            ++times;
            exposed += window.windowHandle()->isExposed();
        });
        window.show();
        QCOMPARE(times, 0);
        QTRY_COMPARE(times, 1);
        QCOMPARE(exposed, 1);
        QTRY_VERIFY(first.isNull());
        window.hide();
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(times, 1);
    }

    void comesForAWindowThatStaysHidden()
    {
        QWidget window;
        window.createWinId();
        int times = 0;
        new FirstExpose(&window, [&times] { ++times; });
        QTRY_COMPARE(times, 1);
    }

    void endsWithTheWindow()
    {
        auto window = std::make_unique<QWidget>();
        window->createWinId();
        new FirstExpose(window.get(), [] { QFAIL("called without its window"); });
        window.reset();
        QTest::qWait(0);
    }
};

QTEST_MAIN(TestFirstExpose)
#include "tst_first_expose.moc"
