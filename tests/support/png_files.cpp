#include "tests/support/png_files.h"

#include <QBuffer>
#include <QtEndian>

namespace {

constexpr qsizetype headerEnd = 8 + 12 + 13; // signature and the IHDR chunk

QByteArray bigEndian(quint32 number)
{
    QByteArray bytes(4, '\0');
    qToBigEndian(number, bytes.data());
    return bytes;
}

quint32 crc(const QByteArray& bytes)
{
    quint32 value = 0xffffffffU;
    for (const char byte : bytes) {
        value ^= static_cast<quint8>(byte);
        for (int bit = 0; bit < 8; ++bit)
            value = (value >> 1U) ^ ((value & 1U) != 0 ? 0xedb88320U : 0U);
    }
    return ~value;
}

} // namespace

namespace png_files {

QByteArray encode(const QImage& image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QByteArray square(int side, QRgb colour)
{
    QImage image(side, side, QImage::Format_RGBA8888);
    image.fill(QColor::fromRgba(colour));
    return encode(image);
}

QByteArray chunk(const QByteArray& type, const QByteArray& data)
{
    return bigEndian(static_cast<quint32>(data.size())) + type + data + bigEndian(crc(type + data));
}

QByteArray withChunk(const QByteArray& png, const QByteArray& chunk)
{
    return png.first(headerEnd) + chunk + png.sliced(headerEnd);
}

QByteArray withClaimedSize(const QByteArray& png, quint32 width, quint32 height)
{
    const QByteArray rest = png.sliced(8 + 8 + 8, 5); // depth, colour type and the like
    return png.first(8) + chunk("IHDR", bigEndian(width) + bigEndian(height) + rest) +
           png.sliced(headerEnd);
}

QByteArray textBomb()
{
    // qCompress writes four bytes of length in front of the zlib stream.
    const QByteArray zeros = qCompress(QByteArray(50'000'000, '\0'), 9).sliced(4);
    const QByteArray text = chunk("zTXt", QByteArray("Comment\0\0", 9) + zeros);
    return withChunk(square(64, qRgb(1, 2, 3)), text.repeated(9));
}

} // namespace png_files
