#include "preview/png_image.h"

#include <QByteArrayView>
#include <QtEndian>

#include <array>

#include <zlib.h>

namespace {

constexpr char signature[] = "\x89PNG\r\n\x1a\n";
constexpr qsizetype signatureSize = 8;
constexpr qsizetype chunkFrame = 12; // length, type, checksum
constexpr qsizetype headerSize = 13;

struct Size
{
    quint32 width = 0;
    quint32 height = 0;

    bool isAcceptable() const { return width <= maxPngSide && height <= maxPngSide; }
    // No picture of this size is longer before compression, whatever its kind: up to eight bytes a
    // pixel, a filter byte a line, and interlacing less than doubles the lines.
    qsizetype maxPixelBytes() const { return static_cast<qsizetype>(8 * width + 2) * height * 2; }
};

bool isPartOfThePicture(QByteArrayView type)
{
    return type == "IHDR" || type == "PLTE" || type == "tRNS" || type == "IDAT" || type == "IEND";
}

// Qt's reader inflates what follows the last pixel as well, at the price of seconds.
bool inflatesToAtMost(QByteArray deflated, qsizetype limit)
{
    z_stream stream = {};
    if (inflateInit(&stream) != Z_OK)
        return false;
    stream.next_in = reinterpret_cast<Bytef*>(deflated.data());
    stream.avail_in = static_cast<uInt>(deflated.size());
    std::array<Bytef, 32768> scratch;
    qsizetype total = 0;
    int state = Z_OK;
    while (state == Z_OK && total <= limit) {
        stream.next_out = scratch.data();
        stream.avail_out = scratch.size();
        state = inflate(&stream, Z_NO_FLUSH);
        total += static_cast<qsizetype>(scratch.size() - stream.avail_out);
    }
    inflateEnd(&stream);
    return total <= limit;
}

// The same picture without anything else in the file; empty when it is not a whole PNG or costs
// more to read than its pixels.
QByteArray bareChunks(const QByteArray& bytes)
{
    if (!bytes.startsWith(QByteArrayView(signature, signatureSize)))
        return {};
    QByteArray bare = bytes.first(signatureSize);
    QByteArray pixels;
    Size size;
    QByteArrayView rest = QByteArrayView(bytes).sliced(signatureSize);
    while (rest.size() >= chunkFrame) {
        const qsizetype length = qFromBigEndian<quint32>(rest.data());
        if (length > rest.size() - chunkFrame)
            return {};
        const QByteArrayView type = rest.sliced(4, 4);
        const QByteArrayView data = rest.sliced(8, length);
        const bool isHeader = type == "IHDR";
        if (isHeader != (bare.size() == signatureSize) || (isHeader && length != headerSize))
            return {};
        if (isHeader)
            size = {qFromBigEndian<quint32>(data.data()), qFromBigEndian<quint32>(data.data() + 4)};
        if (!size.isAcceptable())
            return {};
        if (type == "IDAT")
            pixels.append(data);
        if (isPartOfThePicture(type))
            bare.append(rest.first(chunkFrame + length));
        if (type == "IEND")
            return inflatesToAtMost(pixels, size.maxPixelBytes()) ? bare : QByteArray();
        rest = rest.sliced(chunkFrame + length);
    }
    return {};
}

} // namespace

QImage decodePng(const QByteArray& bytes)
{
    QImage image;
    const QByteArray bare = bareChunks(bytes);
    if (bare.isEmpty() || !image.loadFromData(bare, "PNG"))
        return {};
    return image;
}
