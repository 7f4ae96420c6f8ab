#include "preview/open_gl.h"

#include <QGuiApplication>
#include <QLibrary>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QSurfaceFormat>

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// Qt ends the program where the X server speaks GLX and the machine has no driver for it. The
// libraries are asked for by name, in their versions of ever: Qt has loaded both.
bool lacksGlxDriver()
{
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    const QByteArray chosen = qgetenv("QT_XCB_GL_INTEGRATION");
    if (x11 == nullptr || !(chosen.isEmpty() || chosen == "xcb_glx"))
        return false;
    const auto speaksGlx = reinterpret_cast<int (*)(Display*, int*, int*)>(
        QLibrary::resolve(u"GLX"_s, 0, "glXQueryExtension"));
    const auto chooseVisual = reinterpret_cast<void* (*)(Display*, int, int*)>(
        QLibrary::resolve(u"GLX"_s, 0, "glXChooseVisual"));
    const auto defaultScreen =
        reinterpret_cast<int (*)(Display*)>(QLibrary::resolve(u"X11"_s, 6, "XDefaultScreen"));
    const auto freeVisual =
        reinterpret_cast<int (*)(void*)>(QLibrary::resolve(u"X11"_s, 6, "XFree"));
    if (!speaksGlx || !chooseVisual || !defaultScreen || !freeVisual)
        return true;
    int error = 0;
    int event = 0;
    // Without the protocol Qt does not take this way.
    if (speaksGlx(x11->display(), &error, &event) == 0)
        return false;
    std::array attributes = {4 /* GLX_RGBA */, 0 /* end of the list */};
    void* const visual =
        chooseVisual(x11->display(), defaultScreen(x11->display()), attributes.data());
    if (visual == nullptr)
        return true;
    freeVisual(visual);
    return false;
}

} // namespace

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
    if (lacksGlxDriver())
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
