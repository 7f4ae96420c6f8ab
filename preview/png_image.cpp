#include "preview/png_image.h"

#include "preview/bare_png.h"

QImage decodePng(const QByteArray& bytes)
{
    QImage image;
    const QByteArray bare = barePng(bytes);
    if (bare.isEmpty() || !image.loadFromData(bare, "PNG"))
        return {};
    return image;
}

QImage fittedInto(const QImage& image, int maxSide)
{
    if (image.width() <= maxSide && image.height() <= maxSide)
        return image;
    return image.scaled(qMin(image.width(), maxSide), qMin(image.height(), maxSide));
}
