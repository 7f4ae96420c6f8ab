// A launcher that does nothing but fetch the runtime: "runtime_probe <game directory> <origin>
// <times>" installs that often, two installations at once, and prints each outcome as a line; an
// empty one is a success. As root it becomes nobody first with a fourth argument.
#include "app/settings.h"
#include "services/runtime_manager.h"
#include "tests/support/loopback_deployment.h"
#include "tests/support/throwaway_home.h"

#include <QCoreApplication>

#include <cstdio>

#include <unistd.h>

namespace {

constexpr int atOnce = 2;

} // namespace

int main(int argc, char* argv[])
{
    throwaway_home::enter();
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    constexpr uid_t nobody = 65534;
    if (arguments.size() > 4 && (setgid(nobody) != 0 || setuid(nobody) != 0))
        return 2;
    loopback_deployment::setRuntimeOrigin(arguments.value(2));
    Settings::get().setGameDir(arguments.value(1));

    RuntimeManager manager;
    int left = arguments.value(3).toInt();
    int running = atOnce;
    const auto take = [&](const QString& outcome) {
        std::puts(outcome.toUtf8().constData());
        std::fflush(stdout);
        if (--left > 0)
            manager.install();
        else if (--running == 0)
            QCoreApplication::quit();
    };
    QObject::connect(&manager, &RuntimeManager::installFinished, &application,
                     [&take] { take(QString()); });
    QObject::connect(&manager, &RuntimeManager::installFailed, &application, take);
    for (int i = 0; i < atOnce; ++i)
        manager.install();
    return QCoreApplication::exec();
}
