#pragma once

#include "services/worker.h"

#include <QObject>
#include <QString>

class QByteArray;
class QNetworkAccessManager;

// Keeps the launcher itself current: compares it with the manifest's launcher build, and downloads,
// checks and stages a build that differs. Owned by the main window; GUI thread, never blocking it.
//
// checkForUpdate() ends in exactly one of upToDate, updateReady and updateFailed; updateAvailable
// and updateProgress come before the latter two. A check that fails is silent: upToDate. After
// updateReady the receiver ends the program; a shell script waits for that, swaps the executables
// and starts the new one.
//
// A build that would not start here, for want of a library for one, is not staged, and fails as
// what could not be staged does. What whenUnfit was given is called right before, with words for
// the player, whom updateFailed does not reach.
//
// updateFailed carries the network layer's text, "Checksum mismatch on launcher update", "Could not
// stage update" or, for a full archive, "Could not stage full update".
class UpdateManager : public QObject
{
    Q_OBJECT

public:
    explicit UpdateManager(QObject* parent = nullptr);

    void checkForUpdate();

    using TellUnfit = std::function<void(const QString& version, const QString& lack)>;
    // `lack` says why in words: "libx.so.1 is missing". Before checkForUpdate().
    void whenUnfit(TellUnfit tell) { m_tellUnfit = std::move(tell); }

    // Negative, zero or positive: the difference of the first parts that differ. Missing parts and
    // parts that are not numbers count as 0.
    static int compareVersions(const QString& a, const QString& b);
    // Whether the launcher runs with its own copy of the Qt libraries beside it.
    static bool qtRuntimePresent();
    // In lower-case hexadecimal; empty when the executable cannot be read.
    static QString runningExeSha256();

Q_SIGNALS:
    void upToDate();
    void updateAvailable(const QString& newVersion);
    // Bytes; total is -1 while unknown.
    void updateProgress(qint64 received, qint64 total);
    void updateReady(const QString& newVersion);
    void updateFailed(const QString& error);

private:
    struct Build
    {
        QString version;
        QString url;
        QString sha256;
    };

    static Build newestBuild(const QByteArray& manifest);
    void onManifestDownloaded(const QString& error, const QByteArray& manifest);
    void judge(const Build& build);
    void compareWithRunningExe(const Build& build);
    void update(const Build& build);
    void download(const QString& url, const QString& sha256, const QString& version,
                  bool fullArchive);

    QNetworkAccessManager* m_network;
    TellUnfit m_tellUnfit = [](const QString&, const QString&) {};
    Worker m_worker; // last: it uses nothing of the others once they are gone
};
