#include "preview/open_gl.h"
#include "preview/skin_preview_3d.h"
#include "tests/support/throwaway_home.h"

#include <QMetaMethod>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QSurfaceFormat>
#include <QTest>
#include <QTimer>
#include <QWheelEvent>
#include <QWindow>

#include <cmath>

namespace {

void show(QWidget& widget)
{
    widget.resize(560, 640);
    widget.show();
    QVERIFY(QTest::qWaitForWindowExposed(&widget));
}

void scroll(QWidget& widget, int delta, int sideways = 0)
{
    const QPointF at = widget.rect().center();
    QWheelEvent event(at, widget.mapToGlobal(at), {}, {sideways, delta}, Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(&widget, &event);
}

// Through the window system's door, as the mouse does.
void press(QWidget& widget, QPoint at, Qt::MouseButton button = Qt::LeftButton)
{
    QTest::mousePress(widget.window()->windowHandle(), button, {},
                      widget.mapTo(widget.window(), at));
}

void moveTo(QWidget& widget, QPoint at)
{
    QTest::mouseMove(widget.window()->windowHandle(), widget.mapTo(widget.window(), at));
    QCoreApplication::processEvents();
}

void release(QWidget& widget, QPoint at, Qt::MouseButton button = Qt::LeftButton)
{
    QTest::mouseRelease(widget.window()->windowHandle(), button, {},
                        widget.mapTo(widget.window(), at));
}

} // namespace

// How the view turns and zooms, by itself and by the mouse.
class TestPreviewMotion : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        throwaway_home::enter();
        QSurfaceFormat::setDefaultFormat(open_gl::format());
    }

private Q_SLOTS:
    void startsAsItShould()
    {
        SkinPreview3D preview(nullptr);
        QCOMPARE(preview.minimumSize(), QSize(280, 320));
        QCOMPARE(preview.yaw(), 0.6F);
        QCOMPARE(preview.pitch(), 0.35F);
        QCOMPARE(preview.distance(), 3.4F);
        QVERIFY(!preview.bakedModel().valid);
        QVERIFY(!preview.hasMouseTracking());
        const auto* timer = preview.findChild<QTimer*>();
        QVERIFY(timer && timer->isActive());
        QCOMPARE(timer->interval(), 16);
        // One slot, no signals.
        const QMetaObject* meta = &SkinPreview3D::staticMetaObject;
        QCOMPARE(meta->methodCount() - meta->methodOffset(), 1);
        QCOMPARE(meta->method(meta->methodOffset()).methodSignature(), "tick()");
    }

    void turnsByItself()
    {
        SkinPreview3D preview(nullptr);
        QSignalSpy ticks(preview.findChild<QTimer*>(), &QTimer::timeout);
        QTRY_VERIFY(ticks.count() >= 5);
        QCOMPARE(preview.yaw(), 0.6F + 0.016F * static_cast<float>(ticks.count()));
    }

    // As a view it is the same; as a number it would lose its digits.
    void keepsItsAngleWithinATurn()
    {
        SkinPreview3D preview(nullptr);
        for (int i = 0; i < 400; ++i)
            QVERIFY(QMetaObject::invokeMethod(&preview, "tick", Qt::DirectConnection));
        const double turned = 0.6 + 0.016 * 400 - 2 * M_PI;
        QVERIFY(std::abs(static_cast<double>(preview.yaw()) - turned) < 0.001);
    }

    void followsTheMouse()
    {
        SkinPreview3D preview(nullptr);
        show(preview);
        press(preview, {100, 100});
        const float yaw = preview.yaw();
        moveTo(preview, {150, 100});
        QCOMPARE(preview.yaw(), yaw + 0.5F);
        QCOMPARE(preview.pitch(), 0.35F);
        moveTo(preview, {140, 120});
        QCOMPARE(preview.yaw(), yaw + 0.4F);
        QCOMPARE(preview.pitch(), 0.55F);
        release(preview, {140, 120});
        // The next press starts from where it is; nothing jumps.
        press(preview, {300, 300});
        moveTo(preview, {301, 300});
        QCOMPARE(preview.yaw(), yaw + 0.41F);
        release(preview, {301, 300});
    }

    void roundsPositionsToPixels()
    {
        SkinPreview3D preview(nullptr);
        const auto send = [&preview](QEvent::Type type, QPointF at) {
            QMouseEvent event(type, at, at, Qt::LeftButton, Qt::LeftButton, {});
            QCoreApplication::sendEvent(&preview, &event);
        };
        send(QEvent::MouseButtonPress, {10.4, 10.5});
        send(QEvent::MouseMove, {12.5, 10.6});
        QCOMPARE(preview.yaw(), 0.63F);
        QCOMPARE(preview.pitch(), 0.35F);
    }

    void keepsThePitchInBounds()
    {
        SkinPreview3D preview(nullptr);
        show(preview);
        press(preview, {100, 10});
        moveTo(preview, {100, 600});
        QCOMPARE(preview.pitch(), 1.4F);
        moveTo(preview, {100, 599});
        QCOMPARE(preview.pitch(), 1.39F);
        moveTo(preview, {100, 10});
        QCOMPARE(preview.pitch(), -1.4F);
        release(preview, {100, 10});
    }

    void stopsTurningForGood_data()
    {
        QTest::addColumn<Qt::MouseButton>("button");
        QTest::newRow("left") << Qt::LeftButton;
        QTest::newRow("middle") << Qt::MiddleButton;
        QTest::newRow("right") << Qt::RightButton;
    }

    void stopsTurningForGood()
    {
        QFETCH(Qt::MouseButton, button);
        SkinPreview3D preview(nullptr);
        show(preview);
        press(preview, {100, 100}, button);
        const float yaw = preview.yaw();
        release(preview, {100, 100}, button);
        QSignalSpy ticks(preview.findChild<QTimer*>(), &QTimer::timeout);
        QTRY_VERIFY(ticks.count() >= 5);
        QCOMPARE(preview.yaw(), yaw);
        // Without a button no movement arrives.
        moveTo(preview, {200, 200});
        QCOMPARE(preview.yaw(), yaw);
    }

    void zoomsWithTheWheel()
    {
        SkinPreview3D preview(nullptr);
        scroll(preview, 120);
        QCOMPARE(preview.distance(), 3.16F);
        scroll(preview, -240);
        QCOMPARE(preview.distance(), 3.64F);
        scroll(preview, 0, 120);
        QCOMPARE(preview.distance(), 3.64F);
        scroll(preview, 100'000);
        QCOMPARE(preview.distance(), 1.2F);
        scroll(preview, -100'000);
        QCOMPARE(preview.distance(), 8.0F);
    }
};

QTEST_MAIN(TestPreviewMotion)
#include "tst_preview_motion.moc"
