#pragma once

#include <QByteArray>
#include <QImage>

// The image of a PNG from outside, or a null image: not a PNG, cut, damaged, larger than maxPngSide
// pixels on a side, or with more packed into it than its pixels. Only the chunks that make up the
// picture reach the decoder: a few hundred kilobytes of compressed text in the others would cost it
// seconds and gigabytes.
QImage decodePng(const QByteArray& bytes);

// The largest texture that every OpenGL 3.3 machine takes.
constexpr int maxPngSide = 1024;
