#include "backend/cli/commands.h"

#include <QCoreApplication>

#include <sys/stat.h>

int main(int argc, char** argv)
{
    // What this program writes is for its own account and group (a static file server) only.
    umask(0027);
    const QCoreApplication application(argc, argv);
    return commands::run(QCoreApplication::arguments().mid(1));
}
