#include <QEvent>
#include <QGenericPlugin>
#include <QGuiApplication>
#include <QWindow>

#include <chrono>
#include <cstdio>
#include <cstdlib>

// Prints the steady clock in milliseconds when the first window is exposed, and ends the program.
class ExposeProbe : public QObject
{
    Q_OBJECT

public:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const auto* window = qobject_cast<QWindow*>(watched);
        if (event->type() == QEvent::Expose && window && window->isExposed()) {
            using namespace std::chrono;
            const auto now = steady_clock::now().time_since_epoch();
            std::printf("%.3f\n", duration<double, std::milli>(now).count());
            std::fflush(stdout);
            std::_Exit(0);
        }
        return QObject::eventFilter(watched, event);
    }
};

class ExposeProbePlugin : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "expose_probe.json")

public:
    QObject* create(const QString& /*name*/, const QString& /*options*/) override
    {
        auto* probe = new ExposeProbe;
        probe->setParent(qGuiApp);
        qGuiApp->installEventFilter(probe);
        return probe;
    }
};

#include "expose_probe.moc"
