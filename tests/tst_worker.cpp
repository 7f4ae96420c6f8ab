#include "services/unless_stopped.h"
#include "services/worker.h"
#include "tests/support/heartbeat.h"

#include <QTest>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

// Work that ends when it is asked to, and not before.
int untilStopped(const std::stop_token& stop)
{
    while (!stop.stop_requested())
        std::this_thread::sleep_for(1ms);
    return 0;
}

} // namespace

class TestWorker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void worksOnAThreadOfItsOwn()
    {
        Worker worker;
        const QThread* worked = nullptr;
        const QThread* delivered = nullptr;
        worker.run([](const std::stop_token&) { return QThread::currentThread(); },
                   [&](const QThread* thread) {
                       worked = thread;
                       delivered = QThread::currentThread();
                   });
        QVERIFY(!delivered); // from the event loop, whatever happens
        QTRY_VERIFY(delivered);
        QVERIFY(worked != thread());
        QCOMPARE(delivered, thread());
    }

    void keepsTheOrder()
    {
        Worker worker;
        QList<int> order;
        for (int i = 0; i < 100; ++i)
            worker.run([i](const std::stop_token&) { return i; },
                       [&order](int result) { order.append(result); });
        QTRY_COMPARE(order.size(), 100);
        QVERIFY(std::is_sorted(order.cbegin(), order.cend()));
    }

    // In memory that is not atomic: what ThreadSanitizer has to see as handed over.
    void handsOverWhatItWasGivenAndWhatItMade()
    {
        Worker worker;
        const auto given = std::make_shared<std::vector<int>>(1000, 1);
        std::shared_ptr<std::vector<int>> made;
        worker.run(
            [given](const std::stop_token&) {
                for (int& number : *given)
                    ++number;
                return std::make_shared<std::vector<int>>(*given);
            },
            [&made](std::shared_ptr<std::vector<int>> result) { made = std::move(result); });
        QTRY_VERIFY(made);
        QCOMPARE(*made, std::vector<int>(1000, 2));
        QCOMPARE(*given, *made);
    }

    // Megabytes, for one: to free them takes long as well.
    void givesUpOnItsThreadWhatTheWorkHeld()
    {
        Worker worker;
        const auto held = std::make_shared<int>(1);
        int before = 0;
        worker.run([held](const std::stop_token&) { return 0; },
                   [&](int) { before = static_cast<int>(held.use_count()); });
        QTRY_VERIFY(before > 0);
        QCOMPARE(before, 1);
    }

    void doesNotHoldTheEventLoop()
    {
        Worker worker;
        bool done = false;
        const Heartbeat heartbeat;
        worker.run(
            [](const std::stop_token&) {
                std::this_thread::sleep_for(500ms);
                return 0;
            },
            [&done](int) { done = true; });
        QTRY_VERIFY(done);
        QVERIFY2(heartbeat.longestMs() < 250, qPrintable(QString::number(heartbeat.longestMs())));
    }

    void endsSoonAndDropsAllResults()
    {
        auto worker = std::make_unique<Worker>();
        std::atomic<bool> begun = false;
        int results = 0;
        int begunLater = 0;
        worker->run(
            [&begun](const std::stop_token& stop) {
                begun = true;
                return untilStopped(stop);
            },
            [&results](int) { ++results; });
        worker->run([&begunLater](const std::stop_token&) { return ++begunLater; },
                    [&results](int) { ++results; });
        while (!begun)
            std::this_thread::sleep_for(1ms);
        worker.reset();
        QCoreApplication::processEvents();
        QCOMPARE(begunLater, 0);
        QCOMPARE(results, 0);
    }

    void dropsAResultThatWaits()
    {
        auto worker = std::make_unique<Worker>();
        std::atomic<bool> worked = false;
        bool delivered = false;
        worker->run(
            [&worked](const std::stop_token&) {
                worked = true;
                return 0;
            },
            [&delivered](int) { delivered = true; });
        while (!worked)
            std::this_thread::sleep_for(1ms);
        worker.reset();
        QCoreApplication::processEvents();
        QVERIFY(!delivered);
    }

    void beginsNothingWhileItIsHeld()
    {
        Worker worker;
        std::atomic<int> begun = 0;
        QList<int> order;
        const auto give = [&](int number) {
            worker.run(
                [&begun, number](const std::stop_token&) {
                    ++begun;
                    return number;
                },
                [&order](int result) { order.append(result); });
        };
        worker.hold();
        give(1);
        give(2);
        QTest::qWait(50);
        QCOMPARE(begun, 0);
        worker.release();
        give(3);
        QTRY_COMPARE(order, (QList<int>{1, 2, 3}));
        worker.release(); // nothing is begun twice
        give(4);
        QTRY_COMPARE(order, (QList<int>{1, 2, 3, 4}));
        QCOMPARE(begun, 4);
    }

    void handsBackWhatCannotBeBrokenOff()
    {
        Worker worker;
        std::optional<QByteArray> result;
        worker.run(
            [](const std::stop_token& stop) {
                return unlessStopped(stop, [] { return QByteArray("whole"); });
            },
            [&result](std::optional<QByteArray> given) { result = std::move(given); });
        QTRY_COMPARE(result, QByteArray("whole"));
    }

    // And gives up by itself what it held.
    void leavesAloneWhatCannotBeBrokenOff()
    {
        struct Signs
        {
            std::atomic<bool> begun = false, mayEnd = false, stopped = false;
        };
        const auto signs = std::make_shared<Signs>();
        auto worker = std::make_unique<Worker>();
        worker->run(
            [signs](const std::stop_token& stop) {
                signs->stopped = !unlessStopped(stop, [signs] {
                    signs->begun = true;
                    while (!signs->mayEnd)
                        std::this_thread::sleep_for(1ms);
                    return std::vector<int>(1000, 1);
                });
                return 0;
            },
            [](int) {});
        QTRY_VERIFY(signs->begun);
        worker.reset();
        QVERIFY(signs->stopped);
        signs->mayEnd = true;
        QTRY_COMPARE(signs.use_count(), 1);
    }

    void endsWhileItIsHeld()
    {
        auto worker = std::make_unique<Worker>();
        worker->hold();
        worker->run([](const std::stop_token& stop) { return untilStopped(stop); }, [](int) {});
        worker.reset();
    }
};

QTEST_GUILESS_MAIN(TestWorker)
#include "tst_worker.moc"
