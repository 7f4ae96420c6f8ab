#pragma once

#include <QByteArray>
#include <QString>

// A TCP client that does what no library offers: it ends its sending half, comes from an address of
// its choice, and leaves unread what the server sends.
class RawClient
{
public:
    // Connects to 127.0.0.1.
    explicit RawClient(quint16 port, const QByteArray& from = "127.0.0.1");
    ~RawClient();
    Q_DISABLE_COPY_MOVE(RawClient)

    bool isConnected() const { return m_isConnected; }
    bool send(const QByteArray& bytes) const;
    void endSending() const;
    // What arrives until `wanted` was seen that many times, or the server ends, or it takes too
    // long.
    QByteArray readUntil(const QByteArray& wanted, int count = 1, int timeoutMs = 15000) const;
    // What arrives until the server ends.
    QByteArray readAll(int timeoutMs = 15000) const;
    // Whether the server ends the connection, without anything being read.
    bool waitForReset(int timeoutMs) const;

private:
    int m_socket;
    bool m_isConnected = false;
};
