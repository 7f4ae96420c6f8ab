#pragma once

#include "tests/support/http_server.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A copy of update_probe installed in a directory of its own, with a temporary directory and
// settings of its own and a server that offers it a build. Updates replace this copy only.
class InstalledProbe
{
public:
    explicit InstalledProbe(const QString& directoryName = QStringLiteral("app"));
    // Lets the copy end, and then the script that waits for it.
    ~InstalledProbe();
    Q_DISABLE_COPY_MOVE(InstalledProbe)

    QString directory() const { return m_home.filePath(m_directoryName); }
    QString temporaryDirectory() const { return m_home.filePath(QStringLiteral("tmp")); }
    QString exe() const { return QString(directory() + u"/tessellan-launcher"); }
    QString staged() const { return QString(exe() + u".new"); }
    QString script() const
    {
        return QString(temporaryDirectory() + u"/tessellan_launcher_update.sh");
    }
    // The build that the server offers leaves this file when it is started.
    QString startedMark() const { return m_home.filePath(QStringLiteral("started")); }

    // A shell script that leaves its mark, filled up to `size`.
    QByteArray newBuild(qsizetype size = 0) const;
    // The manifest then names this build, as a newer version, with its digest.
    void offer(const QByteArray& build);
    void offer(const HttpAnswer& answer, const QString& version, const QByteArray& sha256);

    HttpServer& server() { return m_server; }
    QProcess& process() { return m_process; }
    void setVariable(const QString& name, const QString& value);
    // The next runs log their file operations; the point-th of them meets what `variable` says:
    // FAULT_AT or KILL_AT.
    void setPoint(const QString& variable, int point);
    // Those of the last run, in order.
    QByteArrayList operations() const;
    // Lets other users read what they need to run the copy.
    bool openForEverybody();
    void start(const QStringList& arguments = {});
    // Starts the copy and waits for its last line, or for its end.
    void run(const QStringList& arguments = {});
    // Everything printed but the progress and the gap.
    QStringList lines() const;
    QString lastLine() const { return lines().value(lines().size() - 1); }
    qint64 longestGapMs() const;
    // Lets the copy end, as the window does some time after updateReady.
    bool end();

    // Whether the executable holds the same as when it was installed, and can be run.
    bool oldStands() const;
    bool stands(const QByteArray& build) const;
    bool nothingIsStaged() const;
    // Whether the executable runs and reports; nothing is offered to it.
    bool oldStarts();
    // Whether a shell is still at the swap script.
    bool scriptRuns() const;

private:
    QString operationsLog() const { return QString(temporaryDirectory() + u"/operations"); }

    QTemporaryDir m_home;
    QString m_directoryName;
    QByteArray m_old;
    HttpServer m_server;
    QProcess m_process;
    QByteArray m_output;
};

// In lower-case hexadecimal.
QByteArray sha256Of(const QByteArray& data);
// Empty when it cannot be read.
QByteArray contentOf(const QString& path);
