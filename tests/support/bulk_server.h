#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <atomic>
#include <memory>
#include <thread>

class QString;

// A web server for large bodies on a thread of its own, so that what it does is not seen in the
// event loop that is measured. Loopback, any path, any number of requests one after the other.
class BulkServer
{
public:
    // Answers with `size` times the letter 'x', or as far as one of its clients reads.
    explicit BulkServer(qint64 size);
    // The given bytes.
    explicit BulkServer(const QByteArray& body);
    ~BulkServer();
    Q_DISABLE_COPY_MOVE(BulkServer)

    QString url() const;
    // From now on a body stops at its half until it is let go.
    void stallAtHalf(bool stalls) { m_stalls = stalls; }
    // Whether one has.
    bool isStalled() const { return m_isStalled; }

private:
    void serve();
    void answer(int client);

    QByteArray m_block; // sent again and again
    qint64 m_size;
    int m_listener = -1;
    quint16 m_port = 0;
    std::atomic<bool> m_stalls = false;
    std::atomic<bool> m_isStalled = false;
    std::atomic<bool> m_ends = false;
    std::thread m_thread;
};
