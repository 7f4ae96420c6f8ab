#include "backend/looks/skin_check.h"

#include "preview/bare_png.h"

#include <QList>
#include <QtEndian>

#include <csetjmp>
#include <cstring>

#include <png.h>

using namespace Qt::StringLiterals;

namespace {

// The signature, the frame of the first chunk, and the two sizes in it.
constexpr qsizetype sizesEnd = 24;

Refusal refused(const QString& reason)
{
    return {422, u"The skin was refused"_s, {reason}};
}

bool isSkinSize(quint32 width, quint32 height)
{
    return width == height && (width == 64 || width == 128);
}

// Qt's pictures would bring a desktop's libraries onto the server; this is the library behind them.
// It ends what fails by a jump, over nothing here that has a destructor.
void readNext(png_structp png, png_bytep to, size_t size)
{
    auto* rest = static_cast<QByteArrayView*>(png_get_io_ptr(png));
    if (size > size_t(rest->size()))
        png_error(png, "cut");
    memcpy(to, rest->constData(), size);
    *rest = rest->sliced(qsizetype(size));
}

bool readPixels(png_structp png, png_infop info, quint32 side, png_bytepp rows)
{
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    png_read_info(png, info);
    if (png_get_image_width(png, info) != side || png_get_image_height(png, info) != side)
        return false;
    png_set_expand(png);
    png_set_scale_16(png);
    png_set_gray_to_rgb(png);
    png_set_add_alpha(png, 0xff, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != size_t{4} * side)
        return false;
    png_read_image(png, rows);
    png_read_end(png, nullptr);
    return true;
}

void sayNothing(png_structp /*png*/, png_const_charp /*warning*/) {}

[[noreturn]] void jumpBack(png_structp png, png_const_charp /*error*/)
{
    png_longjmp(png, 1);
}

// The pixels, four bytes each; empty when the file is damaged or of another size than it said.
QByteArray pixelsOf(QByteArrayView file, quint32 side)
{
    png_structp png =
        png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, &jumpBack, &sayNothing);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr)
        throw Fault(u"cannot decode a skin"_s);
    png_set_read_fn(png, &file, &readNext);
    QByteArray pixels(qsizetype{4} * side * side, Qt::Uninitialized);
    QList<png_bytep> rows;
    for (quint32 y = 0; y < side; ++y)
        rows.append(reinterpret_cast<png_bytep>(pixels.data()) + size_t{4} * side * y);
    const bool read = readPixels(png, info, side, rows.data());
    png_destroy_read_struct(&png, &info, nullptr);
    return read ? pixels : QByteArray();
}

QByteArray encoded(const QByteArray& pixels, quint32 side)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = side;
    image.height = side;
    image.format = PNG_FORMAT_RGBA;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    QByteArray png(qsizetype(size), Qt::Uninitialized);
    if (png_image_write_to_memory(&image, png.data(), &size, 0, pixels.constData(), 0, nullptr) ==
        0)
        throw Fault(u"cannot encode a skin"_s);
    png.truncate(qsizetype(size));
    // It says which colours are meant, behind the header; the upload's words of it were dropped.
    constexpr qsizetype headerEnd = 33;
    constexpr qsizetype colourSpace = 13;
    if (png.mid(headerEnd + 4, 4) == "sRGB")
        png.remove(headerEnd, colourSpace);
    return png;
}

} // namespace

namespace skin_check {

Outcome<QByteArray> accept(const QByteArray& upload)
{
    if (!upload.startsWith("\x89PNG\r\n\x1a\n") || upload.size() < sizesEnd ||
        upload.mid(12, 4) != "IHDR")
        return refused(u"it is not a PNG image"_s);
    // Known before anything is decoded, and so is what decoding can cost.
    const auto width = qFromBigEndian<quint32>(upload.constData() + 16);
    const auto height = qFromBigEndian<quint32>(upload.constData() + 20);
    if (!isSkinSize(width, height))
        return refused(
            u"it is %1x%2 pixels; 64x64 and 128x128 are allowed"_s.arg(width).arg(height));
    const QByteArray bare = barePng(upload);
    const QByteArray pixels = bare.isEmpty() ? QByteArray() : pixelsOf(bare, width);
    if (pixels.isEmpty())
        return refused(u"the PNG image is damaged or holds more than a picture"_s);
    return encoded(pixels, width);
}

} // namespace skin_check
