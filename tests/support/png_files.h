#pragma once

#include <QByteArray>
#include <QImage>

// PNG files as a test wants them: whole, and with chunks that no honest program writes.
namespace png_files {

QByteArray encode(const QImage& image);
// A plain square of one colour.
QByteArray square(int side, QRgb colour);
// Length, type, data and a right checksum.
QByteArray chunk(const QByteArray& type, const QByteArray& data);
// The file with a chunk put in right after its header.
QByteArray withChunk(const QByteArray& png, const QByteArray& chunk);
// The file with another size in its header, checksum included, and the same pixels.
QByteArray withClaimedSize(const QByteArray& png, quint32 width, quint32 height);
// About 460 KB that blow up to gigabytes in a reader that looks at text.
QByteArray textBomb();

} // namespace png_files
