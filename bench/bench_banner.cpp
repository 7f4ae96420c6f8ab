// One frame of the banner at 1080 x 110: by the widget and by painting everything anew. Both paint
// into an image of the window's format. Needs a display.
#include "bench/measure.h"
#include "tests/support/banner_reference.h"
#include "ui/banner_widget.h"

#include <QApplication>
#include <QImage>
#include <QPainter>

namespace {

constexpr int frames = 1000;

template <typename Paint>
double medianFrame(BannerWidget& banner, const Paint& paint)
{
    paint(); // fonts and the widget's layers, once per run
    std::vector<double> times(frames);
    std::ranges::generate(times, [&] {
        banner.tick();
        return measure::milliseconds(paint);
    });
    return measure::median(times);
}

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    BannerWidget banner(nullptr);
    banner.resize(1080, 110);
    QImage image(banner.size(), QImage::Format_RGB32);

    const double widget = medianFrame(banner, [&] { banner.render(&image, {}, {}, {}); });
    const double full = medianFrame(banner, [&] {
        QPainter painter(&image);
        banner_reference::paint(painter, banner.size(), banner.cubes());
    });
    measure::absolute("banner frame at 1080 x 110", widget, "ms", full, 0.3);
    measure::ratio("banner frame, beside painting all of it", widget, "ms", full, 0.25);
    return 0;
}
