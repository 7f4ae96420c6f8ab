#include "tests/support/bulk_server.h"

#include <QString>

#include <algorithm>
#include <chrono>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

constexpr int pollMs = 20;

bool waitFor(int descriptor, short events)
{
    pollfd poll = {descriptor, events, 0};
    return ::poll(&poll, 1, pollMs) > 0;
}

} // namespace

BulkServer::BulkServer(qint64 size) : m_block(1024 * 1024, 'x'), m_size(size)
{
    serve();
}

BulkServer::BulkServer(const QByteArray& body) : m_block(body), m_size(body.size())
{
    serve();
}

BulkServer::~BulkServer()
{
    m_ends = true;
    m_thread.join();
    close(m_listener);
}

QString BulkServer::url() const
{
    return QStringLiteral("http://127.0.0.1:%1/").arg(m_port);
}

void BulkServer::serve()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(m_listener, plain, size) != 0 || listen(m_listener, 8) != 0 ||
        getsockname(m_listener, plain, &size) != 0)
        qFatal("The server cannot listen");
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] {
        while (!m_ends) {
            if (!waitFor(m_listener, POLLIN))
                continue;
            const int client = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (client >= 0) {
                answer(client);
                close(client);
            }
        }
    });
}

void BulkServer::answer(int client)
{
    QByteArray request;
    char bytes[4096];
    while (!m_ends && !request.contains("\r\n\r\n")) {
        const ssize_t got = waitFor(client, POLLIN) ? read(client, bytes, sizeof bytes) : 0;
        request.append(bytes, std::max<ssize_t>(got, 0));
    }
    const QByteArray head =
        "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + QByteArray::number(m_size) +
        "\r\n\r\n";
    (void)!write(client, head.constData(), static_cast<size_t>(head.size()));
    qint64 sent = 0;
    while (!m_ends && sent < m_size) {
        m_isStalled = m_stalls && sent >= m_size / 2;
        if (m_isStalled) {
            std::this_thread::sleep_for(5ms);
            continue;
        }
        const qint64 place = sent % m_block.size();
        const qint64 most = std::min(m_block.size() - place, m_size - sent);
        const ssize_t wrote =
            waitFor(client, POLLOUT)
                ? send(client, m_block.constData() + place, static_cast<size_t>(most), MSG_NOSIGNAL)
                : 0;
        if (wrote < 0 && errno != EAGAIN)
            return;
        sent += std::max<ssize_t>(wrote, 0);
    }
    // The client closes when it has all; closing first with its bytes unread could cut it short.
    shutdown(client, SHUT_WR);
    while (!m_ends && !waitFor(client, POLLIN)) {
    }
}
