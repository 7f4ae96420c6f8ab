#pragma once

#include "backend/tls.h"

#include <QByteArray>
#include <QString>

#include <chrono>

// One client: its socket, which never blocks, and what has arrived or has yet to be sent. It is
// used by one thread at a time: by the server's loop while it waits for the network, by a worker
// while a request is answered.
class Connection
{
public:
    using Clock = std::chrono::steady_clock;
    enum class State { Receiving, Working, Sending, Draining };
    enum class Io { Moved, Waiting, Ended };

    Connection(int socket, QString address, TlsSession tls);
    ~Connection();
    Q_DISABLE_COPY_MOVE(Connection)

    int socket() const { return m_socket; }
    const QString& address() const { return m_address; }
    bool isSecure() const { return m_tls != nullptr; }

    // Takes what has arrived, but no more than the request under way may hold.
    Io receive();
    // Sends what the socket takes of output() and then of the file; Moved when all is gone.
    Io send();
    // Reads and forgets, so that the last answer is not lost to a reset.
    Io drain();
    void finishSending();

    // Whether a whole head is there, and as much of the body as was asked for.
    bool isRequestReady() const;
    bool isHeadTooLarge() const;
    void needBody(qint64 bytes) { m_bodyNeeded = bytes; }
    qint64 bodyNeeded() const { return m_bodyNeeded; }
    // Where the head ends, behind its blank line; -1 while it has not arrived.
    qsizetype headEnd() const;
    const QByteArray& input() const { return m_input; }
    // Forgets the first bytes: the request that they were is done.
    void consume(qsizetype bytes);

    void setOutput(const QByteArray& bytes);
    // A part of a file that follows the output; the connection closes the handle.
    void setFile(int handle, qint64 offset, qint64 bytes);
    qint64 bytesToSend() const { return m_output.size() - m_sent + m_fileLeft; }

    // The events to wait for in this state, as for epoll.
    quint32 events() const;

    State state = State::Receiving;
    bool closesAfterwards = false;
    Clock::time_point deadline;

private:
    qsizetype inputLimit() const;
    Io move(qint64 result, int failure);
    Io sendFile();
    qint64 write(const char* data, qsizetype size);

    int m_socket;
    QString m_address;
    TlsSession m_tls;
    bool m_waitsForWrite = false;
    bool m_waitsForRead = false;
    QByteArray m_input;
    qint64 m_bodyNeeded = 0;
    QByteArray m_output;
    qsizetype m_sent = 0;
    int m_file = -1;
    qint64 m_fileOffset = 0;
    qint64 m_fileLeft = 0;
};
