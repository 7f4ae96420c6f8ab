#include "tests/support/raw_client.h"

#include <QDeadlineTimer>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

sockaddr_in addressOf(const QByteArray& host, quint16 port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, host.constData(), &address.sin_addr);
    return address;
}

bool waitFor(int socket, short events, const QDeadlineTimer& end)
{
    pollfd one{socket, events, 0};
    return poll(&one, 1, static_cast<int>(end.remainingTime())) > 0;
}

} // namespace

RawClient::RawClient(quint16 port, const QByteArray& from)
    : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_in source = addressOf(from, 0);
    const sockaddr_in target = addressOf("127.0.0.1", port);
    m_isConnected =
        ::bind(m_socket, reinterpret_cast<const sockaddr*>(&source), sizeof source) == 0 &&
        ::connect(m_socket, reinterpret_cast<const sockaddr*>(&target), sizeof target) == 0;
}

RawClient::~RawClient()
{
    ::close(m_socket);
}

bool RawClient::send(const QByteArray& bytes) const
{
    for (qsizetype sent = 0; sent < bytes.size();) {
        const ssize_t went = ::send(m_socket, bytes.constData() + sent,
                                    static_cast<size_t>(bytes.size() - sent), MSG_NOSIGNAL);
        if (went <= 0)
            return false;
        sent += went;
    }
    return true;
}

void RawClient::endSending() const
{
    ::shutdown(m_socket, SHUT_WR);
}

QByteArray RawClient::readUntil(const QByteArray& wanted, int count, int timeoutMs) const
{
    QByteArray got;
    std::array<char, 65536> block;
    const QDeadlineTimer end(timeoutMs);
    while ((wanted.isEmpty() || got.count(wanted) < count) && waitFor(m_socket, POLLIN, end)) {
        const ssize_t more = ::recv(m_socket, block.data(), block.size(), 0);
        if (more <= 0)
            break;
        got.append(block.data(), more);
    }
    return got;
}

QByteArray RawClient::readAll(int timeoutMs) const
{
    return readUntil({}, 1, timeoutMs);
}

bool RawClient::waitForReset(int timeoutMs) const
{
    // Events of none but the end: data that waits does not count.
    return waitFor(m_socket, 0, QDeadlineTimer(timeoutMs));
}
