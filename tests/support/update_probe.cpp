// A launcher without a window: checks for an update, prints every signal as a line, and ends when
// its standard input does. Tests run copies of it, because an update replaces the running
// executable. "update_probe archive <url> <sha256>" takes a full archive instead of checking.
#include "services/update_download.h"
#include "services/update_manager.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <ctime>

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

// How long the event loop was away at most, counted in the thread's own processor time: a busy
// machine adds to the time on the clock as it likes.
class Heartbeat : public QObject
{
public:
    Heartbeat()
    {
        m_timer.start(heartbeatMs);
        connect(&m_timer, &QTimer::timeout, this, [this] { beat(); });
    }
    qint64 longestGapMs()
    {
        beat();
        return m_longest;
    }

private:
    static qint64 processorMs()
    {
        timespec time = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return qint64{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
    }
    void beat()
    {
        const qint64 now = processorMs();
        m_longest = std::max(m_longest, now - m_last);
        m_last = now;
    }

    QTimer m_timer;
    qint64 m_last = processorMs();
    qint64 m_longest = 0;
};

void report(UpdateManager& manager, Heartbeat& heartbeat)
{
    QObject::connect(&manager, &UpdateManager::upToDate, &heartbeat,
                     [&] { finish(QStringLiteral("upToDate"), heartbeat.longestGapMs()); });
    QObject::connect(&manager, &UpdateManager::updateAvailable, &heartbeat,
                     [](const QString& version) { print(u"updateAvailable " + version); });
    QObject::connect(&manager, &UpdateManager::updateProgress, &heartbeat,
                     [](qint64 received, qint64 total) {
                         print(QStringLiteral("updateProgress %1 %2").arg(received).arg(total));
                     });
    QObject::connect(&manager, &UpdateManager::updateReady, &heartbeat,
                     [&](const QString& version) {
                         finish(u"updateReady " + version, heartbeat.longestGapMs());
                     });
    QObject::connect(&manager, &UpdateManager::updateFailed, &heartbeat, [&](const QString& error) {
        finish(u"updateFailed " + error, heartbeat.longestGapMs());
    });
}

void report(UpdateDownload& download, Heartbeat& heartbeat)
{
    QObject::connect(&download, &UpdateDownload::ready, &heartbeat,
                     [&] { finish(QStringLiteral("updateReady"), heartbeat.longestGapMs()); });
    QObject::connect(&download, &UpdateDownload::failed, &heartbeat, [&](const QString& error) {
        finish(u"updateFailed " + error, heartbeat.longestGapMs());
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

    Heartbeat heartbeat;
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
