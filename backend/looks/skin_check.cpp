#include "backend/looks/skin_check.h"

#include "preview/png_image.h"

#include <QBuffer>
#include <QImage>
#include <QtEndian>

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
    QImage image = decodePng(upload);
    if (image.isNull() || !isSkinSize(quint32(image.width()), quint32(image.height())))
        return refused(u"the PNG image is damaged or holds more than a picture"_s);

    QImage bare = image.convertToFormat(QImage::Format_RGBA8888);
    QBuffer kept;
    kept.open(QIODevice::WriteOnly);
    if (!bare.save(&kept, "PNG"))
        throw Fault(u"cannot encode a skin"_s);
    return kept.data();
}

} // namespace skin_check
