#include "app/deployment.h"
#include "preview/open_gl.h"
#include "ui/main_window.h"
#include "ui/style_sheet.h"

#include <QApplication>
#include <QFileInfo>
#include <QIcon>
#include <QSslConfiguration>
#include <QStyleFactory>
#include <QSurfaceFormat>
#include <QThreadPool>

int main(int argc, char* argv[])
{
    // Where no keyboard tables are installed, as in a container, Qt's Wayland client crashes at the
    // first key, if it finds no directory for them. It needs none of them: the compositor sends its
    // own.
    if (!QFileInfo::exists(QStringLiteral("/usr/share/X11/xkb")))
        qputenv("XKB_CONFIG_EXTRA_PATH", "/");
    // Before the application object: the contexts that it shares take their format from here.
    QSurfaceFormat::setDefaultFormat(open_gl::format());
    QApplication application(argc, argv);
    // Where a window that is shown changes to OpenGL, as the character's preview makes it do, Qt's
    // Wayland client may lose what it has painted. There it has OpenGL from the start.
    if (QGuiApplication::platformName().startsWith(QLatin1StringView("wayland")) &&
        open_gl::isUsable()) {
        qputenv("QT_WIDGETS_RHI", "1");
        qputenv("QT_WIDGETS_RHI_BACKEND", "opengl");
    }
    // These two name the per-user data directory; the settings file has names of its own.
    QCoreApplication::setApplicationName(QStringLiteral("Tessellan Launcher"));
    QCoreApplication::setOrganizationName(QStringLiteral("Tessellan"));
    // Wayland finds the window's icon and name by its desktop entry.
    QGuiApplication::setDesktopFileName(deployment::appId);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icon.png")));
    application.setStyleSheet(launcherStyleSheet());

    // Loading the TLS library takes as long as the fonts; the window's first request needs it, but
    // building the window need not wait. The application's end waits for the pool.
    QThreadPool::globalInstance()->start([] { QSslConfiguration::defaultConfiguration(); });

    MainWindow window;
    window.show();
    return QApplication::exec();
}
