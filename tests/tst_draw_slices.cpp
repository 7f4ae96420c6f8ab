#include "preview/baked_model.h"
#include "preview/box_baking.h"
#include "preview/draw_slices.h"

#include <QTest>

#include <numeric>

namespace {

QList<float> boxes(int count, float side)
{
    QList<float> vertices;
    for (int i = 0; i < count; ++i)
        bakeBox(vertices, 128, 128, 0, 0, 0, side, side, side, 0, 0, 0);
    return vertices;
}

int sum(const QList<int>& slices)
{
    return std::accumulate(slices.cbegin(), slices.cend(), 0);
}

} // namespace

class TestDrawSlices : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void drawsNothingOfNothing() { QVERIFY(drawSlices({}).isEmpty()); }

    void drawsTheDefaultFigureInOneCall()
    {
        BakedModel model;
        bakeDefaultFigure(model);
        QCOMPARE(drawSlices(model.vertices), QList<int>{432});
    }

    // However many boxes, as long as they are small.
    void drawsTenThousandSmallBoxesInOneCall()
    {
        QCOMPARE(drawSlices(boxes(10'000, 1)), QList<int>{360'000});
    }

    void drawsManyLargeBoxesInPieces()
    {
        const QList<float> vertices = boxes(1000, 16);
        const QList<int> slices = drawSlices(vertices);
        QVERIFY(slices.size() > 50);
        QCOMPARE(sum(slices), 36'000);
        for (const int count : slices) {
            QCOMPARE(count % 3, 0);
            // Half a screen a triangle at most: a piece is about fifty screens.
            QVERIFY(count > 0 && count <= 3 * 101);
        }
    }

    // A triangle as large as the world costs no more than the screen it fills.
    void countsAHugeTriangleAsOneScreen()
    {
        QCOMPARE(drawSlices(boxes(10, 1e9F)), QList<int>{360});
    }
};

QTEST_GUILESS_MAIN(TestDrawSlices)
#include "tst_draw_slices.moc"
