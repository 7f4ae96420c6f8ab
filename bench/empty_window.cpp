#include <QApplication>
#include <QMainWindow>

// The measure of bench_startup: the least that a program with a window of that size does.
int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    QMainWindow window;
    window.resize(1080, 600);
    window.show();
    return QApplication::exec();
}
