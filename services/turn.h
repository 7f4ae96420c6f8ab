#pragma once

#include <QString>

#include <functional>

// One at a time, among threads and among processes: whoever holds the turn of a path. While it is
// held or waited for, a file of that name stands there; the system ends the turn of a process that
// dies. Where the file system knows no locks, nobody waits. Not for the GUI thread.
class Turn
{
public:
    explicit Turn(const QString& path) : m_path(path) {}
    ~Turn();
    Q_DISABLE_COPY_MOVE(Turn)

    // False when `cancelled`, asked while it waits, said so, or when the file cannot be made.
    bool wait(const std::function<bool()>& cancelled);

private:
    enum class Attempt { Mine, Taken, Failed };
    Attempt attempt();

    QString m_path;
    int m_descriptor = -1;
};
