// Usage: tessellan-launcher-trial tls|display
// Lies beside the launcher, with its libraries and plugins, and ends well where the launcher would
// find OpenSSL, or could open a window. Opens none. `install` starts it before it replaces
// anything.

#include <QApplication>
#include <QCoreApplication>
#include <QSslSocket>
#include <QString>

using namespace Qt::StringLiterals;

int main(int argc, char* argv[])
{
    if (argc > 1 && QLatin1StringView(argv[1]) == "display"_L1) {
        // Ends the process, and says why, where no platform plugin gets to a display.
        const QApplication application(argc, argv);
        return 0;
    }
    const QCoreApplication application(argc, argv);
    return QSslSocket::supportsSsl() ? 0 : 1;
}
