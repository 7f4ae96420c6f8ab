#include "backend/listen_socket.h"

#include "backend/outcome.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int backlog = 512;

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

Addresses resolve(const QString& host, int port)
{
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const QByteArray service = QByteArray::number(port);
    if (getaddrinfo(host.toUtf8().constData(), service.constData(), &hints, &found) != 0)
        throw Fault(u"cannot listen on %1: there is no such address"_s.arg(host));
    return {found, &freeaddrinfo};
}

} // namespace

ListenSocket::ListenSocket(const QString& host, int port)
{
    const Addresses address = resolve(host, port);
    m_handle = ::socket(address->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int yes = 1;
    // Not SO_REUSEPORT, with which a second server would share the port in silence.
    setsockopt(m_handle, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (::bind(m_handle, address->ai_addr, address->ai_addrlen) == 0 &&
        ::listen(m_handle, backlog) == 0)
        return;
    const QString why =
        errno == EADDRINUSE ? u"the port is in use"_s : QString::fromLocal8Bit(strerror(errno));
    close();
    throw Fault(u"cannot listen on %1:%2: %3"_s.arg(host).arg(port).arg(why));
}

ListenSocket::~ListenSocket()
{
    close();
}

void ListenSocket::close()
{
    if (m_handle >= 0)
        ::close(m_handle);
    m_handle = -1;
}

int ListenSocket::port() const
{
    sockaddr_storage address = {};
    socklen_t size = sizeof address;
    std::array<char, NI_MAXSERV> service = {};
    if (getsockname(m_handle, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        getnameinfo(reinterpret_cast<sockaddr*>(&address), size, nullptr, 0, service.data(),
                    service.size(), NI_NUMERICSERV) != 0)
        return 0;
    return QByteArray(service.data()).toInt();
}

int ListenSocket::accept(QString& address) const
{
    sockaddr_storage peer = {};
    socklen_t size = sizeof peer;
    const int socket = ::accept4(m_handle, reinterpret_cast<sockaddr*>(&peer), &size,
                                 SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (socket < 0)
        return -1;
    const int yes = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    std::array<char, NI_MAXHOST> name = {};
    if (getnameinfo(reinterpret_cast<sockaddr*>(&peer), size, name.data(), name.size(), nullptr, 0,
                    NI_NUMERICHOST) == 0)
        address = QString::fromLatin1(name.data());
    return socket;
}
