#pragma once

#include "services/worker.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

// Puts a new executable beside the running one, as its path + ".new", and starts the script that
// swaps the two once this process has ended. Internal to UpdateManager. finish and stageZip end in
// exactly one of restarting (the script waits), differs (its digest is another one), unfit (it
// would not start here) and failed; after the latter three neither staged file nor script is left.
// The staged file has its name only when it is whole and on the disk; for a launcher whose own path
// Qt cannot name nothing is staged. One executable per object. GUI thread; hashes, writes and
// unpacks on a worker, and has the system's loader look at the staged file; its end breaks all that
// off.
class UpdateStaging : public QObject
{
    Q_OBJECT

public:
    explicit UpdateStaging(QObject* parent);
    ~UpdateStaging() override;

    // The next piece of the executable; `next` is called, from the event loop, when there is room
    // for another one. One at a time.
    void add(const QByteArray& piece, std::function<void()> next);
    // After the last piece. Without a digest it is not checked.
    void finish(const QString& sha256);
    // A whole archive instead: unpacks every entry over the launcher's directory but
    // "TessellanLauncher.exe", which holds the new executable whatever the running one is called.
    // Files that were unpacked before a failure stay.
    void stageZip(const QByteArray& archive);

    // Once the launcher ends: from then on no end of the script, not even one between its move and
    // its chmod, leaves an executable that cannot be run.
    static void makeStagedRunnable();

Q_SIGNALS:
    void restarting();
    void differs();
    // The reason in words: "libx.so.1 is missing".
    void unfit(const QString& lack);
    void failed();

private:
    class NewExe;
    enum class Outcome { Kept, Differs, Failed };
    struct Staged
    {
        Outcome outcome = Outcome::Failed;
        QString lack;   // why the system would not start it; else
        QString loader; // who is to be asked about its libraries, if anybody
    };

    static Staged judged(Outcome outcome);
    void report(const Staged& staged);
    void tryWith(const QString& loader);
    void restart();
    void refuse(const QString& lack);

    std::shared_ptr<NewExe> m_exe; // the worker's thread only
    bool m_isTrying = false;
    Worker m_worker;
};
