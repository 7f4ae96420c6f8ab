// A launcher without a window: checks for an update, prints every signal as a line, and ends when
// its standard input does. Tests run copies of it, because an update replaces the running
// executable. "update_probe archive <url> <sha256>" takes a full archive instead of checking.
#include "services/update_download.h"
#include "services/update_manager.h"
#include "tests/support/heartbeat.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QSocketNotifier>

#include <cstdio>

#include <unistd.h>

namespace {

constexpr int heartbeatMs = 5;

void print(const QString& line)
{
    std::puts(line.toUtf8().constData());
    std::fflush(stdout);
}

void finish(const QString& line, qint64 longestGapMs)
{
    print(QStringLiteral("longestGap %1").arg(longestGapMs));
    print(line);
}

void report(UpdateManager& manager, Heartbeat& heartbeat)
{
    QObject::connect(&manager, &UpdateManager::upToDate, &heartbeat,
                     [&] { finish(QStringLiteral("upToDate"), heartbeat.longestProcessorMs()); });
    QObject::connect(&manager, &UpdateManager::updateAvailable, &heartbeat,
                     [](const QString& version) { print(u"updateAvailable " + version); });
    QObject::connect(&manager, &UpdateManager::updateProgress, &heartbeat,
                     [](qint64 received, qint64 total) {
                         print(QStringLiteral("updateProgress %1 %2").arg(received).arg(total));
                     });
    QObject::connect(&manager, &UpdateManager::updateReady, &heartbeat,
                     [&](const QString& version) {
                         finish(u"updateReady " + version, heartbeat.longestProcessorMs());
                     });
    manager.whenUnfit([](const QString& version, const QString& lack) {
        print(u"unfit " + version + u": " + lack);
    });
    QObject::connect(&manager, &UpdateManager::updateFailed, &heartbeat, [&](const QString& error) {
        finish(u"updateFailed " + error, heartbeat.longestProcessorMs());
    });
}

void report(UpdateDownload& download, Heartbeat& heartbeat)
{
    QObject::connect(&download, &UpdateDownload::ready, &heartbeat, [&] {
        finish(QStringLiteral("updateReady"), heartbeat.longestProcessorMs());
    });
    QObject::connect(&download, &UpdateDownload::unfit, &heartbeat,
                     [](const QString& lack) { print(u"unfit archive: " + lack); });
    QObject::connect(&download, &UpdateDownload::failed, &heartbeat, [&](const QString& error) {
        finish(u"updateFailed " + error, heartbeat.longestProcessorMs());
    });
}

void quitWithInput(QSocketNotifier& input)
{
    QObject::connect(&input, &QSocketNotifier::activated, &input, [&input] {
        char byte = 0;
        if (read(STDIN_FILENO, &byte, 1) > 0)
            return;
        input.setEnabled(false);
        QCoreApplication::quit();
    });
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    quitWithInput(input);

    Heartbeat heartbeat(heartbeatMs);
    UpdateManager manager;
    report(manager, heartbeat);
    QNetworkAccessManager network;
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == u"archive") {
        auto* download = new UpdateDownload(&manager);
        report(*download, heartbeat);
        download->start(&network, arguments.value(2), arguments.value(3), true);
    } else {
        print(UpdateManager::qtRuntimePresent() ? QStringLiteral("own Qt")
                                                : QStringLiteral("system's Qt"));
        manager.checkForUpdate();
    }
    return QCoreApplication::exec();
}
