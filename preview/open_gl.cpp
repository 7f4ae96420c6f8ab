#include "preview/open_gl.h"

#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QSurfaceFormat>

namespace open_gl {

QSurfaceFormat format()
{
    QSurfaceFormat format;
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    format.setDepthBufferSize(24);
    return format;
}

bool isUsable()
{
    QOffscreenSurface surface;
    surface.setFormat(format());
    surface.create();
    QOpenGLContext context;
    context.setFormat(format());
    if (!context.create() || !context.makeCurrent(&surface))
        return false;
    const QSurfaceFormat given = context.format();
    context.doneCurrent();
    return !context.isOpenGLES() && given.version() >= std::pair(3, 3);
}

} // namespace open_gl
