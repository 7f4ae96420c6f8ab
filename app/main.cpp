#include "app/deployment.h"
#include "ui/main_window.h"
#include "ui/style_sheet.h"

#include <QApplication>
#include <QIcon>
#include <QStyleFactory>

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    // These two name the per-user data directory; the settings file has names of its own.
    QCoreApplication::setApplicationName(QStringLiteral("Tessellan Launcher"));
    QCoreApplication::setOrganizationName(QStringLiteral("Tessellan"));
    // Wayland finds the window's icon and name by its desktop entry.
    QGuiApplication::setDesktopFileName(deployment::appId);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icon.png")));
    application.setStyleSheet(launcherStyleSheet());

    MainWindow window;
    window.show();
    return QApplication::exec();
}
