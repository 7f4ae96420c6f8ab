#include "tests/support/banner_reference.h"
#include "tests/support/throwaway_home.h"
#include "ui/banner_widget.h"

#include <QAbstractEventDispatcher>
#include <QFontMetricsF>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QSignalSpy>
#include <QTest>

#include <cmath>

namespace {

// A colour with channels in levels, computed without the painter.
struct Levels
{
    double r, g, b;
};

Levels mixed(QRgb from, QRgb to, double t)
{
    const auto mix = [t](int a, int b) { return a + (b - a) * t; };
    return {mix(qRed(from), qRed(to)), mix(qGreen(from), qGreen(to)), mix(qBlue(from), qBlue(to))};
}

Levels over(const Levels& below, const QColor& colour, double alpha)
{
    const auto blend = [alpha](double a, int b) { return a * (1 - alpha) + b * alpha; };
    return {blend(below.r, colour.red()), blend(below.g, colour.green()),
            blend(below.b, colour.blue())};
}

// What stands behind the cubes at a pixel's centre.
Levels behind(double x, double y, double w, double h)
{
    const double t = y / h;
    const Levels base =
        t < 0.6 ? mixed(0x0b0d14, 0x0d1220, t / 0.6) : mixed(0x0d1220, 0x0a0f18, (t - 0.6) / 0.4);
    const auto glow = [](double dx, double dy, double radius) {
        return 150.0 / 255 * std::max(0.0, 1 - std::hypot(dx, dy) / radius);
    };
    const Levels first = over(base, QColor(29, 43, 80), glow(x - 0.7 * w, y, 0.45 * w));
    return over(first, QColor(20, 48, 31), glow(x - 0.12 * w, y - h, 0.38 * w));
}

bool isNear(QRgb pixel, const Levels& expected, double levels)
{
    return std::abs(qRed(pixel) - expected.r) <= levels &&
           std::abs(qGreen(pixel) - expected.g) <= levels &&
           std::abs(qBlue(pixel) - expected.b) <= levels;
}

QString text(const Levels& c)
{
    return QStringLiteral("%1 %2 %3").arg(c.r).arg(c.g).arg(c.b);
}

#define COMPARE_PIXEL(image, x, y, expected, levels)                                               \
    QVERIFY2(isNear((image).pixel(x, y), expected, levels),                                        \
             qPrintable(QStringLiteral("at %1,%2: %3, expected %4")                                \
                            .arg(x)                                                                \
                            .arg(y)                                                                \
                            .arg(QColor((image).pixel(x, y)).name(), text(expected))))

QImage canvas(const QSize& size, double pixelRatio, const QColor& fill)
{
    QImage image(size * pixelRatio, QImage::Format_RGB32);
    image.setDevicePixelRatio(pixelRatio);
    image.fill(fill);
    return image;
}

QImage frame(BannerWidget& banner, double pixelRatio = 1)
{
    QImage image = canvas(banner.size(), pixelRatio, Qt::magenta);
    banner.render(&image);
    return image;
}

QImage fullFrame(const BannerWidget& banner, double pixelRatio)
{
    // At ratio 1.1 a rounding error lets a trace of the canvas through at the right edge.
    QImage image = canvas(banner.size(), pixelRatio, Qt::black);
    QPainter painter(&image);
    banner_reference::paint(painter, banner.size(), banner.cubes());
    return image;
}

int largestDifference(const QImage& a, const QImage& b)
{
    int largest = 0;
    for (int y = 0; y < a.height(); ++y) {
        const auto* rowA = reinterpret_cast<const QRgb*>(a.constScanLine(y));
        const auto* rowB = reinterpret_cast<const QRgb*>(b.constScanLine(y));
        for (int x = 0; x < a.width(); ++x) {
            largest = std::max({largest, std::abs(qRed(rowA[x]) - qRed(rowB[x])),
                                std::abs(qGreen(rowA[x]) - qGreen(rowB[x])),
                                std::abs(qBlue(rowA[x]) - qBlue(rowB[x]))});
        }
    }
    return largest;
}

// Where a cube's point (cx, cy) stands.
QPointF centreOf(const BannerWidget::Cube& cube, const QSizeF& size)
{
    return {size.width() * cube.x, (size.height() - 30) * cube.y + 15 +
                                       4 * std::sin(double{cube.phase}) - 0.25 * cube.size};
}

QRectF boundsOf(const BannerWidget::Cube& cube, const QSizeF& size)
{
    const double s = cube.size;
    const QPointF centre = centreOf(cube, size);
    return QRectF(centre.x() - s / 2, centre.y() - s / 4, s, s).adjusted(-1, -1, 1, 1);
}

struct Wordmark
{
    QPainterPath path;
    double left, advance;
};

Wordmark wordmarkIn(const QSizeF& size)
{
    QFont font(QStringLiteral("Segoe UI"), 26, QFont::Bold);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 6);
    const QFontMetricsF metrics(font);
    Wordmark mark;
    mark.advance = metrics.horizontalAdvance(QStringLiteral("TESSELLAN"));
    mark.left = (size.width() - mark.advance) / 2;
    mark.path.addText(mark.left, size.height() / 2 + metrics.ascent() / 2 - 4, font,
                      QStringLiteral("TESSELLAN"));
    return mark;
}

} // namespace

class TestBannerWidget : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void asksForItsSize()
    {
        const BannerWidget banner(nullptr);
        QCOMPARE(banner.sizeHint(), QSize(800, 110));
        QCOMPARE(banner.minimumHeight(), 110);
        QCOMPARE(banner.maximumHeight(), 110);
    }

    void seedsFourteenCubes()
    {
        for (int round = 0; round < 200; ++round) {
            const BannerWidget banner(nullptr);
            QCOMPARE(banner.cubes().size(), 14);
            for (int i = 0; i < 14; ++i) {
                const auto& cube = banner.cubes().at(i);
                QVERIFY(cube.x >= 0 && cube.x <= 1);
                QVERIFY(cube.y >= 0 && cube.y <= 1);
                QVERIFY(cube.size >= 14 && cube.size <= 48);
                QVERIFY(cube.speed >= 0.0006F && cube.speed <= 0.002F);
                QVERIFY(cube.phase >= 0 && cube.phase <= 6.2832F);
                QVERIFY(cube.alpha >= 0.12F && cube.alpha <= 0.32F);
                QCOMPARE(cube.palette, i % 5);
            }
        }
    }

    void seedsSpreadOverTheirRanges()
    {
        QList<BannerWidget::Cube> cubes;
        for (int round = 0; round < 100; ++round)
            cubes += BannerWidget(nullptr).cubes();
        const auto spans = [&](float BannerWidget::Cube::* field, float low, float high) {
            const auto [least, most] = std::minmax_element(
                cubes.cbegin(), cubes.cend(),
                [field](const auto& a, const auto& b) { return a.*field < b.*field; });
            const float margin = (high - low) * 0.05F;
            return *least.*field < low + margin && *most.*field > high - margin;
        };
        QVERIFY(spans(&BannerWidget::Cube::x, 0, 1));
        QVERIFY(spans(&BannerWidget::Cube::y, 0, 1));
        QVERIFY(spans(&BannerWidget::Cube::size, 14, 48));
        QVERIFY(spans(&BannerWidget::Cube::speed, 0.0006F, 0.002F));
        QVERIFY(spans(&BannerWidget::Cube::phase, 0, 6.2831F));
        QVERIFY(spans(&BannerWidget::Cube::alpha, 0.12F, 0.32F));
    }

    void cubesDriftBobAndReturn()
    {
        BannerWidget banner(nullptr);
        int returns = 0;
        int newHeights = 0;
        for (int step = 0; step < 10'000; ++step) {
            const QList<BannerWidget::Cube> before = banner.cubes();
            banner.tick();
            QCOMPARE(banner.cubes().size(), before.size());
            for (int i = 0; i < before.size(); ++i) {
                const auto& old = before.at(i);
                const auto& cube = banner.cubes().at(i);
                const bool returned = old.x - old.speed < -0.06F;
                returns += returned ? 1 : 0;
                newHeights += cube.y != old.y ? 1 : 0;
                QCOMPARE(cube.x, returned ? 1.06F : old.x - old.speed);
                QVERIFY(returned || cube.y == old.y);
                QVERIFY(cube.y >= 0 && cube.y <= 1);
                QCOMPARE(cube.phase, old.phase + 0.03F);
                QVERIFY(cube.size == old.size && cube.speed == old.speed &&
                        cube.alpha == old.alpha && cube.palette == old.palette);
            }
        }
        // The slowest cube returns every 1,867 ticks, the fastest every 560.
        QVERIFY2(returns >= 14 * 4 && returns <= 14 * 19, qPrintable(QString::number(returns)));
        QVERIFY(newHeights > returns - 3);
    }

    void cubesStayInTheirBand()
    {
        BannerWidget banner(nullptr);
        banner.resize(1080, 110);
        for (int step = 0; step < 10'000; ++step) {
            banner.tick();
            for (const auto& cube : banner.cubes()) {
                const double y = centreOf(cube, banner.size()).y();
                QVERIFY(y >= 15 - 0.25 * cube.size - 4 && y <= 95 - 0.25 * cube.size + 4);
            }
        }
    }

    void ticksEveryFortyMillisecondsEvenHidden()
    {
        const BannerWidget banner(nullptr);
        const auto timers = QAbstractEventDispatcher::instance()->registeredTimers(
            const_cast<BannerWidget*>(&banner));
        QCOMPARE(timers.size(), 1);
        QCOMPARE(timers.first().interval, 40);
        QCOMPARE(timers.first().timerType, Qt::CoarseTimer);
        const float before = banner.cubes().first().phase;
        QTRY_VERIFY(banner.cubes().first().phase > before);
    }

    void ignoresOtherTimers()
    {
        BannerWidget banner(nullptr);
        const auto timers = QAbstractEventDispatcher::instance()->registeredTimers(&banner);
        const float before = banner.cubes().first().phase;
        QTimerEvent other(timers.first().timerId + 1);
        QCoreApplication::sendEvent(&banner, &other);
        QCOMPARE(banner.cubes().first().phase, before);
        QTimerEvent own(timers.first().timerId);
        QCoreApplication::sendEvent(&banner, &own);
        QCOMPARE(banner.cubes().first().phase, before + 0.03F);
    }

    void tickRepaints()
    {
        BannerWidget banner(nullptr);
        banner.resize(800, 110);
        banner.show();
        QVERIFY(QTest::qWaitForWindowExposed(&banner));
        const QImage first = banner.grab().toImage();
        for (int i = 0; i < 40; ++i)
            banner.tick();
        QVERIFY(banner.grab().toImage() != first);
    }

    void equalsFullPainting_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<double>("pixelRatio");
        for (const int width : {10, 120, 800, 1080, 2560}) {
            for (const double pixelRatio : {1.0, 1.1, 1.5, 2.0}) {
                QTest::addRow("%d wide at ratio %.1f", width, pixelRatio) << width << pixelRatio;
            }
        }
    }

    void equalsFullPainting()
    {
        QFETCH(int, width);
        QFETCH(double, pixelRatio);
        BannerWidget banner(nullptr);
        banner.resize(width, 110);
        for (int i = 0; i < 5; ++i) {
            for (int step = 0; step < 300; ++step)
                banner.tick();
            const int difference =
                largestDifference(frame(banner, pixelRatio), fullFrame(banner, pixelRatio));
            QVERIFY2(difference <= 1, qPrintable(QString::number(difference)));
        }
    }

    void followsSizeAndPixelRatio()
    {
        BannerWidget banner(nullptr);
        for (const int width : {800, 1080, 801, 800}) {
            banner.resize(width, 110);
            for (const double pixelRatio : {1.0, 2.0, 1.0})
                QVERIFY(largestDifference(frame(banner, pixelRatio),
                                          fullFrame(banner, pixelRatio)) <= 1);
        }
    }

    void paintsBackgroundAndGlows()
    {
        BannerWidget banner(nullptr);
        banner.resize(1080, 110);
        const QImage image = frame(banner);
        const QRectF letters = wordmarkIn(banner.size()).path.boundingRect().adjusted(-2, -2, 2, 2);
        int checked = 0;
        for (int y = 0; y < 108; ++y) {
            for (int x = 0; x < 1080; ++x) {
                const QPointF centre(x + 0.5, y + 0.5);
                const auto covers = [&](const auto& cube) {
                    return boundsOf(cube, banner.size()).contains(centre);
                };
                if (letters.contains(centre) ||
                    std::any_of(banner.cubes().cbegin(), banner.cubes().cend(), covers))
                    continue;
                ++checked;
                // Three paintings in whole levels, each off by up to one.
                COMPARE_PIXEL(image, x, y, behind(centre.x(), centre.y(), 1080, 110), 2.5);
            }
        }
        QVERIFY(checked > 60'000);
    }

    void facesHaveTheirColours()
    {
        struct Face
        {
            QPointF offset; // of its middle from (cx, cy), in cube sizes
            QColor colour;
        };
        const auto palette = [](QRgb top, QRgb left, QRgb right) {
            return QList<Face>{{{0, 0}, QColor(top).lighter(130)},
                               {{-0.25, 0.375}, QColor(left).darker(142)},
                               {{0.25, 0.375}, QColor(right).darker(105)}};
        };
        const QList<Face> green = palette(0x6dbf58, 0x4e8a3f, 0x3d6e31);
        const QList<Face> blue = palette(0x4ec9f5, 0x3a97c2, 0x2d7799);
        const QList<QList<Face>> palettes{green, blue, green, blue,
                                          palette(0x8a6dbf, 0x6a4e9a, 0x523c78)};
        QList<int> checked(5);
        for (int round = 0; round < 40; ++round) {
            BannerWidget banner(nullptr);
            banner.resize(1080, 110);
            const QImage image = frame(banner);
            const QRectF letters = wordmarkIn(banner.size()).path.boundingRect();
            for (int i = 0; i < 14; ++i) {
                const auto& cube = banner.cubes().at(i);
                const QRectF bounds = boundsOf(cube, banner.size());
                bool alone = !bounds.intersects(letters);
                for (int j = 0; j < 14; ++j)
                    alone = alone && (i == j || !bounds.intersects(
                                                    boundsOf(banner.cubes().at(j), banner.size())));
                if (!alone)
                    continue;
                for (const Face& face : palettes.at(cube.palette)) {
                    const QPoint at =
                        (centreOf(cube, banner.size()) + face.offset * cube.size).toPoint();
                    if (!QRect(0, 0, 1080, 107).contains(at))
                        continue;
                    ++checked[cube.palette];
                    const Levels expected = over(behind(at.x() + 0.5, at.y() + 0.5, 1080, 110),
                                                 face.colour, cube.alpha);
                    COMPARE_PIXEL(image, at.x(), at.y(), expected, 2.5);
                }
            }
        }
        for (const int count : checked)
            QVERIFY2(count >= 20, qPrintable(QString::number(count)));
    }

    void writesTheWordmark()
    {
        BannerWidget banner(nullptr);
        banner.resize(1080, 110);
        const QImage image = frame(banner);
        const Wordmark mark = wordmarkIn(banner.size());
        const QRectF box = mark.path.boundingRect();
        QVERIFY(std::abs(box.center().x() + 3 - 540) < 4); // half the last letter's spacing
        int inked = 0;
        for (int y = 0; y < 110; ++y) {
            for (int x = 0; x < 1080; ++x) {
                if (!mark.path.contains(QRectF(x, y, 1, 1)))
                    continue;
                ++inked;
                const double t = (x + 0.5 - mark.left) / mark.advance;
                const Levels expected =
                    t < 0.55 ? mixed(0x7ef0a0, 0x4ec9f5, std::clamp((t - 0.15) / 0.4, 0.0, 1.0))
                             : mixed(0x4ec9f5, 0xb48cf2, std::clamp((t - 0.55) / 0.35, 0.0, 1.0));
                COMPARE_PIXEL(image, x, y, expected, 2.0);
            }
        }
        QVERIFY(inked > 500);
    }

    void endsWithTheBottomLine()
    {
        for (const int width : {800, 1080}) {
            BannerWidget banner(nullptr);
            banner.resize(width, 110);
            const QImage image = frame(banner);
            for (int x = 0; x < width; ++x) {
                const Levels expected = mixed(0x2fae62, 0x4ec9f5, (x + 0.5) / width);
                COMPARE_PIXEL(image, x, 108, expected, 1.5);
                COMPARE_PIXEL(image, x, 109, expected, 1.5);
                QVERIFY(!isNear(image.pixel(x, 107), expected, 1.5));
            }
        }
    }
};

QTEST_MAIN(TestBannerWidget)
#include "tst_banner_widget.moc"
