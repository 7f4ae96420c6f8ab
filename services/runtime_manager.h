#pragma once

#include <QObject>
#include <QString>

#include <memory>

class QNetworkAccessManager;

// The launcher's private Java 11 runtime, inside the game directory. The file system is the only
// record; a manager keeps no state between calls. Lives on the GUI thread, owned by the window
// for whose play flow it was made. The archive is written and unpacked on a detached worker thread,
// and installFinished and installFailed are then emitted on that thread: connect them with a
// context object. Destroying the manager meanwhile, or while it waits for its turn, cancels that
// and waits the moment it takes. Whatever is clicked, cancelled or killed, in one launcher or
// several: a runtime that counts as installed is whole.
class RuntimeManager : public QObject
{
    Q_OBJECT

public:
    explicit RuntimeManager(QObject* parent = nullptr);
    ~RuntimeManager() override;

    // The runtime itself ("<game directory>/runtime/jre-11"), not the directory it stands in.
    static QString runtimeDir();
    static QString javaExe();
    // True when javaExe() exists; neither its version nor that it runs is checked.
    static bool isInstalled();

    // Downloads and replaces, also when one is installed. Several may be under way at once: their
    // unpackings take turns, and each reports its own outcome.
    void install();

Q_SIGNALS:
    // Bytes; total is -1 while unknown.
    void downloadProgress(qint64 received, qint64 total);
    void installFinished();
    // The text to show, complete.
    void installFailed(const QString& error);

private:
    struct Workers;

    void onDownloaded(const QString& error, const QByteArray& body);
    void extract(const QString& zipPath, QByteArray body);

    QNetworkAccessManager* m_network;
    std::shared_ptr<Workers> m_workers;
};
