#include "preview/open_gl.h"

#include <QGuiApplication>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QSurfaceFormat>

#include <utility>

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
    // Beside an X server it gives contexts, but no windows that contain OpenGL.
    if (QGuiApplication::platformName() == u"offscreen")
        return false;
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
