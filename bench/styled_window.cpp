#include "ui/style_sheet.h"

#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QStyleFactory>

// The fairer measure of bench_startup: the least that a program does whose window has that size,
// the launcher's style and a text. It reads the fonts and the style sheet, as every launcher must.
int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    application.setStyleSheet(launcherStyleSheet());
    QMainWindow window;
    window.resize(1080, 600);
    window.setStyleSheet(windowStyleSheet());
    window.setCentralWidget(new QLabel(QStringLiteral("Tessellan Launcher")));
    window.show();
    return QApplication::exec();
}
