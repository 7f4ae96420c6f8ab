#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QProcess;

// Whether a program would find its libraries where it lies: asks the system's own loader, in a
// process beside this one, to look for them and to name what it misses. Nothing of the program is
// run but what choosing its functions takes. GUI thread, which waits for nothing; its end ends the
// process.
class LoaderTrial : public QObject
{
    Q_OBJECT

public:
    explicit LoaderTrial(QObject* parent = nullptr);
    ~LoaderTrial() override;

    // Once. `limitMs` is for a disk that hangs.
    void start(const QString& loader, const QString& program, int limitMs = 10'000);

    // What the loader's words say against this program: "libx.so.1 is missing"; empty when they
    // say nothing that keeps it from starting.
    static QString lackOf(const QString& program, const QByteArray& loaderSays);

Q_SIGNALS:
    // Empty: nothing is known against it, also because the loader cannot be started or hangs.
    void finished(const QString& lack);

private:
    void takeOutput();

    QProcess* m_process;
    QByteArray m_output;
    bool m_gaveUp = false;
};
