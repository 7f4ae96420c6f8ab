#include "ui/banner_widget.h"

#include <QEvent>
#include <QTest>

namespace {

// How often a widget was painted.
class PaintCounter : public QObject
{
public:
    int count = 0;

    bool eventFilter(QObject* /*watched*/, QEvent* event) override
    {
        count += event->type() == QEvent::Paint;
        return false;
    }
};

} // namespace

// What the banner does by itself, on a screen.
class TestBannerMotion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isPaintedAgainAsItMoves()
    {
        BannerWidget banner(nullptr);
        banner.resize(800, banner.height());
        banner.show();
        QVERIFY(QTest::qWaitForWindowExposed(&banner));
        PaintCounter paints;
        banner.installEventFilter(&paints);
        QTRY_VERIFY(paints.count >= 5);
    }
};

QTEST_MAIN(TestBannerMotion)
#include "tst_banner_motion.moc"
