#include "services/slices.h"

#include <QObject>
#include <QTest>

#include <memory>

class TestSlices : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stepsUntilToldToStop()
    {
        QObject owner;
        int steps = 0;
        runInSlices(&owner, [&steps] { return ++steps < 5; });
        QCOMPARE(steps, 0);
        QTRY_VERIFY(owner.children().isEmpty());
        QCOMPARE(steps, 5);
    }

    void endsWithItsOwner()
    {
        auto owner = std::make_unique<QObject>();
        const auto steps = std::make_shared<int>(0);
        runInSlices(owner.get(), [steps] {
            ++*steps;
            return true;
        });
        QTRY_VERIFY(*steps > 0);
        owner.reset();
        // The step is gone, and what it held.
        QCOMPARE(steps.use_count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestSlices)
#include "tst_slices.moc"
