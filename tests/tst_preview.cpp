#include "preview/open_gl.h"
#include "preview/skin_preview_3d.h"
#include "tests/support/costs.h"
#include "tests/support/figure_view.h"
#include "tests/support/png_files.h"
#include "tests/support/throwaway_home.h"

#include <QMouseEvent>
#include <QOpenGLContext>
#include <QOpenGLDebugLogger>
#include <QOpenGLFunctions>
#include <QRegularExpression>
#include <QSurfaceFormat>
#include <QTest>
#include <QWheelEvent>

#include <cmath>

namespace {

const QColor background(11, 13, 20);
const QColor plainTexture(90, 100, 120);

// Notes every error that the driver reports, from the first call on.
class WatchedPreview : public SkinPreview3D
{
public:
    explicit WatchedPreview(QWidget* parent = nullptr) : SkinPreview3D(parent) {}

    QStringList errors;

protected:
    void initializeGL() override
    {
        auto* logger = new QOpenGLDebugLogger(context());
        QVERIFY(logger->initialize());
        logger->startLogging(QOpenGLDebugLogger::SynchronousLogging);
        connect(logger, &QOpenGLDebugLogger::messageLogged, this,
                [this](const QOpenGLDebugMessage& message) {
                    if (message.type() == QOpenGLDebugMessage::ErrorType)
                        errors << message.message();
                });
        SkinPreview3D::initializeGL();
    }
};

// Every texel has a colour of its own; part of the outer layers' areas is empty.
QImage texelSkin(int side)
{
    QImage image(side, side, QImage::Format_RGBA8888);
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const int u = x * 64 / side, v = y * 64 / side;
            const bool isOuter =
                (u >= 32 && v < 16) || (v >= 32 && v < 48) || (v >= 48 && (u < 16 || u >= 48));
            const bool isEmpty = isOuter && (u / 2 + v / 2) % 2 == 0;
            image.setPixelColor(x, y, QColor(u * 4, v * 4, 128, isEmpty ? 0 : 255));
        }
    }
    return image;
}

QByteArray textured(const QByteArray& png)
{
    return R"({"elements":[{"box_uv":true,"from":[-8,8,-8],"to":[8,24,8]}],"outliner":[""],)"
           R"("textures":[{"width":64,"height":64,"source":"data:image/png;base64,)" +
           png.toBase64() + R"("  }]})";
}

bool isClose(QRgb a, QRgb b)
{
    return std::abs(qRed(a) - qRed(b)) <= 2 && std::abs(qGreen(a) - qGreen(b)) <= 2 &&
           std::abs(qBlue(a) - qBlue(b)) <= 2;
}

void show(QWidget& widget)
{
    widget.resize(560, 640);
    widget.show();
    QVERIFY(QTest::qWaitForWindowExposed(&widget));
}

QColor centreOf(SkinPreview3D& preview)
{
    const QImage frame = preview.grabFramebuffer();
    return frame.pixelColor(frame.width() / 2, frame.height() / 2);
}

void scroll(QWidget& widget, int delta)
{
    const QPointF at = widget.rect().center();
    QWheelEvent event(at, widget.mapToGlobal(at), {}, {0, delta}, Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(&widget, &event);
}

// Drags the view to an angle, to the nearest hundredth that a pixel turns it by.
void turnTo(SkinPreview3D& preview, double yaw, double pitch)
{
    const auto send = [&preview](QEvent::Type type, QPointF at) {
        QMouseEvent event(type, at, preview.mapToGlobal(at), Qt::LeftButton, Qt::LeftButton, {});
        QCoreApplication::sendEvent(&preview, &event);
    };
    send(QEvent::MouseButtonPress, {0, 0});
    send(QEvent::MouseMove, {std::round((yaw - static_cast<double>(preview.yaw())) * 100),
                             std::round((pitch - static_cast<double>(preview.pitch())) * 100)});
}

} // namespace

class TestPreview : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        throwaway_home::enter();
        QSurfaceFormat format = open_gl::format();
        format.setOption(QSurfaceFormat::DebugContext);
        QSurfaceFormat::setDefaultFormat(format);
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(open_gl::isUsable()); }

    // Qt warns of GL objects that outlive their context and of shaders that do not link.
    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral("."))); }

    void drawsInACoreProfile()
    {
        WatchedPreview preview;
        preview.setModel({});
        show(preview);
        (void)preview.grabFramebuffer();
        const QSurfaceFormat format = preview.context()->format();
        QCOMPARE(format.profile(), QSurfaceFormat::CoreProfile);
        QVERIFY(format.version() >= qMakePair(3, 3));
        QVERIFY(format.testOption(QSurfaceFormat::DebugContext));
        QCOMPARE(preview.errors, QStringList());
    }

    // The watch itself: a fault that a driver reports does arrive.
    void hearsOfErrors()
    {
        WatchedPreview preview;
        show(preview);
        (void)preview.grabFramebuffer();
        preview.makeCurrent();
        preview.context()->functions()->glEnable(0x1234);
        preview.doneCurrent();
        QCOMPARE(preview.errors.size(), 1);
    }

    void showsOnlyTheBackgroundUntilSomethingIsBaked()
    {
        WatchedPreview preview;
        show(preview);
        QImage expected(preview.grabFramebuffer());
        expected.fill(background);
        QCOMPARE(preview.grabFramebuffer(), expected);
        QCOMPARE(preview.vertexCount(), 0);

        preview.setModel(R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[9,9,9]}]})");
        QVERIFY(preview.bakedModel().valid);
        QCOMPARE(preview.grabFramebuffer(), expected);
        QCOMPARE(preview.errors, QStringList());
    }

    void showsEveryTexelWhereItBelongs_data()
    {
        QTest::addColumn<double>("yaw");
        QTest::addColumn<double>("pitch");
        QTest::addColumn<int>("wheel");
        QTest::newRow("back") << 0.0 << 0.0 << 0;
        QTest::newRow("front") << M_PI << 0.0 << 0;
        QTest::newRow("high x") << M_PI / 2 << 0.0 << 0;
        QTest::newRow("low x") << -M_PI / 2 << 0.0 << 0;
        QTest::newRow("corner from above") << 0.6 << 0.35 << 0;
        QTest::newRow("corner from below") << 3.9 << -0.9 << 0;
        QTest::newRow("straight down") << 0.3 << 1.4 << 0;
        QTest::newRow("straight up") << 2.0 << -1.4 << 240;
        QTest::newRow("close") << 2.5 << 0.2 << 720;
        QTest::newRow("inside") << 5.5 << 0.1 << 1200;
        QTest::newRow("far") << 5.0 << 0.5 << -2400;
    }

    void showsEveryTexelWhereItBelongs()
    {
        QFETCH(double, yaw);
        QFETCH(double, pitch);
        QFETCH(int, wheel);
        const QImage skin = texelSkin(64);
        WatchedPreview preview;
        preview.setModel({});
        preview.setSkin(png_files::encode(skin));
        show(preview);
        turnTo(preview, yaw, pitch);
        scroll(preview, wheel);
        QVERIFY(std::abs(static_cast<double>(preview.yaw()) - yaw) < 0.006);

        const QImage frame = preview.grabFramebuffer();
        const FigureView view(skin, frame.size(), static_cast<double>(preview.yaw()),
                              static_cast<double>(preview.pitch()),
                              static_cast<double>(preview.distance()));
        int compared = 0;
        for (int y = 3; y < frame.height(); y += 7) {
            for (int x = 3; x < frame.width(); x += 7) {
                const FigureView::Seen expected = view.at({x, y});
                if (!expected.isCertain)
                    continue;
                compared += expected.colour ? 1 : 0;
                const QRgb shown = frame.pixel(x, y);
                QVERIFY2(isClose(shown, expected.colour.value_or(background.rgb())),
                         qPrintable(QStringLiteral("(%1, %2) shows %3, not %4")
                                        .arg(x)
                                        .arg(y)
                                        .arg(shown, 8, 16)
                                        .arg(expected.colour.value_or(0), 8, 16)));
            }
        }
        QVERIFY2(compared > 60, qPrintable(QString::number(compared)));
        QCOMPARE(preview.errors, QStringList());
    }

    void looksTheSameInBothSkinSizes()
    {
        WatchedPreview preview;
        preview.setModel({});
        show(preview);
        turnTo(preview, 3.5, 0.3);
        preview.setSkin(png_files::encode(texelSkin(64)));
        const QImage small = preview.grabFramebuffer();
        preview.setSkin(png_files::encode(texelSkin(128)));
        QCOMPARE(preview.grabFramebuffer(), small);
        QCOMPARE(preview.errors, QStringList());
    }

    void cutsAwayNearlyTransparentTexels()
    {
        WatchedPreview preview;
        preview.setModel({});
        show(preview);
        preview.setSkin(png_files::square(64, qRgba(200, 60, 30, 25)));
        QCOMPARE(centreOf(preview), background);
        preview.setSkin(png_files::square(64, qRgba(200, 60, 30, 26)));
        QVERIFY(isClose(centreOf(preview).rgb(), qRgb(200, 60, 30)));
    }

    void prefersTheSkinThenTheModelsTexture()
    {
        const QRgb red = qRgb(220, 20, 20), green = qRgb(20, 220, 20);
        WatchedPreview preview;
        preview.setModel({});
        show(preview);
        QCOMPARE(centreOf(preview), plainTexture);
        preview.setModel(textured(png_files::square(16, green)));
        QCOMPARE(centreOf(preview).rgb(), green);
        preview.setSkin(png_files::square(64, red));
        QCOMPARE(centreOf(preview).rgb(), red);
        preview.setSkin("not a PNG");
        QVERIFY(preview.skinImage().isNull());
        QCOMPARE(centreOf(preview).rgb(), green);
        preview.setModel({});
        QVERIFY(preview.modelTexture().isNull());
        QCOMPARE(centreOf(preview), plainTexture);
        QCOMPARE(preview.errors, QStringList());
    }

    // A refused model's texture stays in use, as long as the player has no skin.
    void wearsTheTextureOfARefusedModel()
    {
        const QRgb green = qRgb(20, 220, 20);
        WatchedPreview preview;
        show(preview);
        preview.setModel(
            textured(png_files::square(16, green)).replace("\"box_uv\":true", "\"box_uv\":false"));
        QCOMPARE(centreOf(preview).rgb(), green);
        QCOMPARE(preview.vertexCount(), 432);
    }

    void showsTheDefaultFigureForUnusableModels_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("no JSON") << QByteArray("{{{");
        QTest::newRow("an array") << QByteArray("[1,2,3]");
        QTest::newRow("no elements") << QByteArray("{}");
        QTest::newRow("nested too deep") << QByteArray("[").repeated(5000);
    }

    void showsTheDefaultFigureForUnusableModels()
    {
        QFETCH(QByteArray, json);
        WatchedPreview preview;
        show(preview);
        preview.setModel(textured(png_files::square(16, qRgb(1, 2, 3))));
        (void)preview.grabFramebuffer();
        QCOMPARE(preview.vertexCount(), 36);
        preview.setModel(json);
        QCOMPARE(centreOf(preview), plainTexture);
        QCOMPARE(preview.vertexCount(), 432);
        QCOMPARE(preview.bakedModel().parts.size(), 6);
        QCOMPARE(preview.errors, QStringList());
    }

    void showsThePlainFigureForBadSkins_data()
    {
        const QByteArray png = png_files::square(64, qRgb(200, 0, 0));
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("text") << QByteArray("<html>");
        QTest::newRow("20000 x 20000") << png_files::withClaimedSize(png, 20000, 20000);
    }

    void showsThePlainFigureForBadSkins()
    {
        QFETCH(QByteArray, bytes);
        WatchedPreview preview;
        preview.setModel({});
        preview.setSkin(png_files::square(64, qRgb(200, 0, 0)));
        show(preview);
        preview.setSkin(bytes);
        QCOMPARE(centreOf(preview), plainTexture);
        QCOMPARE(preview.errors, QStringList());
    }

    void showsSkinsOfAnySize_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::newRow("one pixel") << QSize(1, 1);
        QTest::newRow("half a skin") << QSize(128, 64);
        QTest::newRow("odd") << QSize(37, 501);
        QTest::newRow("large") << QSize(1024, 1024);
        QTest::newRow("largest") << QSize(4096, 4096);
    }

    void showsSkinsOfAnySize()
    {
        QFETCH(QSize, size);
        QImage image(size, QImage::Format_RGB888);
        image.fill(QColor(10, 200, 30));
        WatchedPreview preview;
        preview.setModel({});
        show(preview);
        preview.setSkin(png_files::encode(image));
        QCOMPARE(centreOf(preview), QColor(10, 200, 30));
        QCOMPARE(preview.errors, QStringList());
    }

    // Boxes that each fill the view. A software driver would need half a minute for all of them, so
    // the last ones are left out: always the same ones, and what is drawn is one call.
    void keepsFramesShortUnderABurden_data()
    {
        QTest::addColumn<QByteArray>("corners");
        QTest::newRow("around the figure") << QByteArray(R"("from":[-8,8,-8],"to":[8,24,8])");
        QTest::newRow("around the camera") << QByteArray(R"("from":[-99,-99,-99],"to":[99,99,99])");
        QTest::newRow("beyond everything")
            << QByteArray(R"("from":[-1e9,-1e9,-1e9],"to":[1e9,1e9,1e9],"inflate":1e300)");
    }

    void keepsFramesShortUnderABurden()
    {
        QFETCH(QByteArray, corners);
        WatchedPreview preview;
        show(preview);
        preview.setModel("{\"elements\":[{\"box_uv\":true," + corners +
                         ",\"uuid\":\"a\"}],\"outliner\":[" +
                         QByteArray("\"a\",").repeated(10'000).chopped(1) + "]}");
        const double start = costs::cpuSeconds();
        (void)preview.grabFramebuffer();
        QVERIFY(costs::cpuSeconds() - start < 0.5);
        QVERIFY(preview.vertexCount() > 50 * 36 && preview.vertexCount() < 5'000 * 36);
        QCOMPARE(preview.vertexCount(), preview.bakedModel().vertices.size() / 5);
        QCOMPARE(preview.errors, QStringList());
    }

    void movesToAnotherWindow()
    {
        QWidget first, second;
        auto* preview = new WatchedPreview(&first);
        preview->setModel({});
        preview->setSkin(png_files::square(64, qRgb(200, 0, 0)));
        show(first);
        QCOMPARE(centreOf(*preview), QColor(200, 0, 0));
        preview->setParent(&second);
        preview->show();
        show(second);
        QCOMPARE(centreOf(*preview), QColor(200, 0, 0));
        QCOMPARE(preview->errors, QStringList());
        delete preview;
    }
};

QTEST_MAIN(TestPreview)
#include "tst_preview.moc"
