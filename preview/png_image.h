#pragma once

#include "preview/bare_png.h"

#include <QByteArray>
#include <QImage>

// The image of a PNG from outside, or a null image. Takes what Qt's own reader takes, with the same
// pixels, but refuses before it costs anything what barePng refuses. Any thread.
QImage decodePng(const QByteArray& bytes);

// The image, made smaller where it is larger than maxSide, for a driver that takes no more.
QImage fittedInto(const QImage& image, int maxSide);
