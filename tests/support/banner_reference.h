#pragma once

#include "ui/banner_widget.h"

class QPainter;

// The banner's picture painted in full, nothing reused: what a frame of BannerWidget must look
// like, and what the benchmark compares with. Written on its own, step by step, with no code of
// the widget's.
namespace banner_reference {

void paint(QPainter& painter, const QSizeF& size, const QList<BannerWidget::Cube>& cubes);

} // namespace banner_reference
