#pragma once

#include <QByteArray>
#include <QImage>

// The image of a PNG from outside, or a null image. Takes what Qt's own reader takes, with the same
// pixels, but refuses before it costs anything what is larger than maxPngSide on a side, holds more
// compressed data than its pixels, or is cut into a senseless number of chunks. What is no part of
// the picture never reaches the decoder: a few hundred kilobytes of compressed text would cost it
// seconds and gigabytes. Any thread.
QImage decodePng(const QByteArray& bytes);

// 64 MB as pixels of four bytes.
constexpr int maxPngSide = 4096;

// The image, made smaller where it is larger than maxSide, for a driver that takes no more.
QImage fittedInto(const QImage& image, int maxSide);
