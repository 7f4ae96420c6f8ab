#include "preview/baked_model.h"
#include "preview/box_baking.h"
#include "tests/support/box_reference.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

using Floats = QList<float>;

// The rectangle of the six vertices from first on, in texels counted from the top left.
QRectF textureRectangle(const BakedModel& model, int first)
{
    float left = 1e9F, right = -1e9F, top = 1e9F, bottom = -1e9F;
    for (int vertex = first; vertex < first + 6; ++vertex) {
        const float s = model.vertices[vertex * 5 + 3] * 128;
        const float t = (1 - model.vertices[vertex * 5 + 4]) * 128;
        left = qMin(left, s);
        right = qMax(right, s);
        top = qMin(top, t);
        bottom = qMax(bottom, t);
    }
    return QRectF(QPointF(left, top), QPointF(right, bottom));
}

} // namespace

class TestBoxBaking : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Worked out by hand: texels 8..24 by 16..24 of a 64 x 32 texture are s 0.125..0.375 and
    // t 0.5..0.25.
    void mapsAFaceOfConstantY()
    {
        Floats out;
        bakeFace(out, 64, 32, 1, 5, 2, 3, 5, 4, 8, 16, 16, 8, 0);
        const Floats a{1, 5, 4, 0.125F, 0.5F}, b{1, 5, 2, 0.125F, 0.25F}, c{3, 5, 2, 0.375F, 0.25F},
            d{3, 5, 4, 0.375F, 0.5F};
        QCOMPARE(out, a + b + c + a + c + d);
    }

    void mapsAFaceOfConstantZ()
    {
        Floats out;
        bakeFace(out, 64, 32, 1, 5, 2, 3, 9, 2, 8, 16, 16, 8, 1);
        const Floats a{1, 9, 2, 0.125F, 0.5F}, b{1, 5, 2, 0.125F, 0.25F}, c{3, 5, 2, 0.375F, 0.25F},
            d{3, 9, 2, 0.375F, 0.5F};
        QCOMPARE(out, a + b + c + a + c + d);
    }

    void runsTheTextureAgainstZOnTheSides()
    {
        Floats out;
        bakeFace(out, 64, 32, 1, 5, 2, 1, 9, 4, 8, 16, 16, 8, 2);
        const Floats a{1, 9, 2, 0.375F, 0.5F}, b{1, 5, 2, 0.375F, 0.25F}, c{1, 5, 4, 0.125F, 0.25F},
            d{1, 9, 4, 0.125F, 0.5F};
        QCOMPARE(out, a + b + c + a + c + d);
    }

    void appendsToWhatIsThere()
    {
        Floats out{42};
        bakeBox(out, 128, 128, 0, 0, 0, 1, 1, 1, 0, 0, 0);
        QCOMPARE(out.size(), 1 + 36 * 5);
        QCOMPARE(out.first(), 42.0F);
    }

    // Six faces in their order, each by its plane and the corner of its rectangle: a box of
    // 1 x 2 x 3 pixels is 2 x 4 x 6 texels.
    void unfoldsABoxInOrder()
    {
        Floats out;
        bakeBox(out, 128, 128, 0, 0, 0, 1, 2, 3, 10, 20, 0);
        BakedModel model;
        model.vertices = out;
        const QRectF rectangles[] = {{16, 20, 2, 6}, {18, 20, 2, 6}, {16, 26, 2, 4},
                                     {24, 26, 2, 4}, {10, 26, 6, 4}, {18, 26, 6, 4}};
        const int planes[] = {1, 1, 2, 2, 0, 0};
        const float positions[] = {2 / 16.0F, 0, 0, 3 / 16.0F, 0, 1 / 16.0F};
        for (int face = 0; face < 6; ++face) {
            QCOMPARE(textureRectangle(model, face * 6), rectangles[face]);
            for (int vertex = face * 6; vertex < face * 6 + 6; ++vertex)
                QCOMPARE(out[vertex * 5 + planes[face]], positions[face]);
        }
    }

    void inflatesPositionsOnly()
    {
        Floats plain, inflated;
        bakeBox(plain, 128, 128, 0, 0, 0, 4, 4, 4, 0, 0, 0);
        bakeBox(inflated, 128, 128, 0, 0, 0, 4, 4, 4, 0, 0, 0.5F);
        for (qsizetype i = 0; i < plain.size(); ++i) {
            if (i % 5 >= 3)
                QCOMPARE(inflated[i], plain[i]);
            else
                QCOMPARE(inflated[i], plain[i] == 0 ? -0.03125F : 0.28125F);
        }
    }

    void agreesWithThePlainFormulas()
    {
        QRandomGenerator random(20260507);
        const auto number = [&random](int low, int high) {
            return random.bounded(low * 8, high * 8) / 8.0;
        };
        for (int run = 0; run < 1000; ++run) {
            box_reference::Box box{{number(-40, 40), number(-40, 40), number(-40, 40)},
                                   {number(-40, 40), number(-40, 40), number(-40, 40)},
                                   number(0, 200),
                                   number(-9, 200),
                                   number(-1, 3)};
            const int width = random.bounded(1, 200);
            const int height = random.bounded(1, 200);
            const auto f = [](double value) { return static_cast<float>(value); };
            Floats out;
            bakeBox(out, width, height, f(box.low[0]), f(box.low[1]), f(box.low[2]), f(box.high[0]),
                    f(box.high[1]), f(box.high[2]), f(box.u), f(box.v), f(box.inflate));
            QCOMPARE(
                box_reference::firstDifference(out, box_reference::bake(box, width, height, 2)),
                -1);
        }
    }

    void standsSixPartsOfTwoBoxes()
    {
        BakedModel model;
        bakeDefaultFigure(model);
        QVERIFY(model.valid);
        QCOMPARE(model.textureWidth, 128);
        QCOMPARE(model.textureHeight, 128);
        QCOMPARE(model.vertices.size(), 2160);
        QCOMPARE(model.parts.size(), 6);
        for (int i = 0; i < 6; ++i) {
            QCOMPARE(model.parts[i].firstVertex, i * 72);
            QCOMPARE(model.parts[i].vertexCount, 72);
        }
    }

    void standsEveryPartWhereItBelongs_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QList<double>>("box");
        QTest::addColumn<QList<double>>("origins"); // base u, v, outer u, v
        QTest::addColumn<QList<float>>("pivot");
        const auto row = [](const QString& name, const QList<double>& box,
                            const QList<double>& origins, const QList<float>& pivot) {
            QTest::newRow(qPrintable(name)) << name << box << origins << pivot;
        };
        row(QStringLiteral("head"), {-4, 24, -4, 4, 32, 4}, {0, 0, 64, 0}, {0, 1.5F, 0});
        row(QStringLiteral("torso"), {-4, 12, -2, 4, 24, 2}, {32, 32, 32, 64}, {0, 0.75F, 0});
        row(QStringLiteral("arm_l"), {4, 12, -2, 8, 24, 2}, {80, 32, 80, 64}, {0.375F, 1.4375F, 0});
        row(QStringLiteral("arm_r"), {-8, 12, -2, -4, 24, 2}, {64, 96, 96, 96},
            {-0.375F, 1.4375F, 0});
        row(QStringLiteral("leg_l"), {0, 0, -2, 4, 12, 2}, {0, 32, 0, 64}, {0.125F, 0.75F, 0});
        row(QStringLiteral("leg_r"), {-4, 0, -2, 0, 12, 2}, {32, 96, 0, 96}, {-0.125F, 0.75F, 0});
    }

    void standsEveryPartWhereItBelongs()
    {
        QFETCH(QString, name);
        QFETCH(QList<double>, box);
        QFETCH(QList<double>, origins);
        QFETCH(QList<float>, pivot);
        BakedModel model;
        bakeDefaultFigure(model);
        const auto part = std::find_if(model.parts.cbegin(), model.parts.cend(),
                                       [&](const ModelPart& p) { return p.name == name; });
        QVERIFY(part != model.parts.cend());
        QCOMPARE((QList<float>{part->pivotX, part->pivotY, part->pivotZ}), pivot);

        box_reference::Box base{
            {box[0], box[1], box[2]}, {box[3], box[4], box[5]}, origins[0], origins[1]};
        box_reference::Box outer = base;
        outer.u = origins[2];
        outer.v = origins[3];
        outer.inflate = 0.25;
        const QList<double> expected =
            box_reference::bake(base, 128, 128, 2) + box_reference::bake(outer, 128, 128, 2);
        QCOMPARE(box_reference::firstDifference(
                     model.vertices.sliced(part->firstVertex * 5, part->vertexCount * 5), expected),
                 -1);
    }

    void keepsTheOrderOfTheParts()
    {
        BakedModel model;
        bakeDefaultFigure(model);
        QStringList names;
        for (const ModelPart& part : model.parts)
            names << part.name;
        QCOMPARE(names.join(u' '), QStringLiteral("head torso arm_l arm_r leg_l leg_r"));
    }

    void appendsTheFigureToAModel()
    {
        BakedModel model;
        bakeDefaultFigure(model);
        bakeDefaultFigure(model);
        QCOMPARE(model.vertices.size(), 2 * 2160);
        QCOMPARE(model.parts.size(), 12);
        QCOMPARE(model.parts[6].firstVertex, 432);
    }
};

QTEST_GUILESS_MAIN(TestBoxBaking)
#include "tst_box_baking.moc"
