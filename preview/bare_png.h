#pragma once

#include <QByteArray>

// 64 MB as pixels of four bytes.
constexpr int maxPngSide = 4096;

// A PNG from outside as cheap to decode as it can be: the picture alone, in few chunks. Empty when
// it must not reach a decoder: no PNG, larger than maxPngSide on a side, more compressed data than
// its pixels, or cut into a senseless number of chunks. What is no part of the picture would cost a
// decoder seconds and gigabytes. Damaged pictures pass, for the decoder to judge. Any thread.
QByteArray barePng(const QByteArray& file);
