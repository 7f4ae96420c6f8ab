#pragma once

#include "services/worker.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

// Puts a new executable beside the running one, as its path + ".new", and starts the script that
// swaps the two once this process has ended. Internal to UpdateManager. finish and stageZip end in
// exactly one of restarting (the script waits), differs (its digest is another one) and failed;
// after the latter two neither staged file nor script is left. The staged file has its name only
// when it is whole and on the disk; for a launcher whose own path Qt cannot name nothing is staged.
// One executable per object. GUI thread; hashes, writes and unpacks on a worker, which its end
// breaks off.
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

Q_SIGNALS:
    void restarting();
    void differs();
    void failed();

private:
    class NewExe;
    enum class Outcome { Kept, Differs, Failed };

    void report(Outcome outcome);

    std::shared_ptr<NewExe> m_exe; // the worker's thread only
    Worker m_worker;
};
