#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <memory>

class StagedFile;
namespace zip {
class UnpackingOver;
}

// Puts a new executable beside the running one, as its path + ".new", and starts the script that
// swaps the two once this process has ended. Internal to UpdateManager. Each call ends in exactly
// one of restarting (the script waits) and failed (neither staged file nor script is left). The
// staged file has its name only when it is whole and on the disk; for a launcher whose own path Qt
// cannot name nothing is staged. One call per object; GUI thread; unpacks and writes in slices.
class UpdateStaging : public QObject
{
    Q_OBJECT

public:
    explicit UpdateStaging(QObject* parent);
    ~UpdateStaging() override;

    void stageAndRestart(const QByteArray& exe);
    // Unpacks every entry over the launcher's directory but "TessellanLauncher.exe", which holds
    // the new executable whatever the running one is called. Files that were unpacked before a
    // failure stay.
    void stageZipAndRestart(const QByteArray& archive);

Q_SIGNALS:
    void restarting();
    void failed();

private:
    bool unpackSome();
    void swapAndRestart();

    std::unique_ptr<zip::UnpackingOver> m_unpacking;
    std::unique_ptr<StagedFile> m_staged;
};
