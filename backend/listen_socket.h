#pragma once

#include <QString>

// A listening, non-blocking socket that has its address for itself alone.
class ListenSocket
{
public:
    // Port 0: any free one. Throws Fault when the address cannot be had.
    ListenSocket(const QString& host, int port);
    ~ListenSocket();
    Q_DISABLE_COPY_MOVE(ListenSocket)

    int handle() const { return m_handle; }
    int port() const;
    // The next client's socket, or -1 when nobody waits. Sets `address` to where it comes from.
    int accept(QString& address) const;
    // Lets nobody in any more.
    void close();

private:
    int m_handle = -1;
};
