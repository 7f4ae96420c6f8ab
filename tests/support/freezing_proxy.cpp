#include "tests/support/freezing_proxy.h"

#include <array>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

sockaddr_in loopback(quint16 port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int tcpSocket()
{
    return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

} // namespace

FreezingProxy::FreezingProxy(quint16 target) : m_target(target), m_listener(tcpSocket())
{
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (::bind(m_listener, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
        ::listen(m_listener, 100) == 0 &&
        ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size) == 0)
        m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { work(); });
}

FreezingProxy::~FreezingProxy()
{
    m_ending = true;
    m_thread.join();
    for (const Pair& pair : m_pairs) {
        ::close(pair.client);
        ::close(pair.target);
    }
    ::close(m_listener);
}

void FreezingProxy::freeze(Frozen what)
{
    m_frozen = what;
    // Until it has been noticed.
    const int seen = m_rounds;
    while (m_rounds < seen + 2)
        std::this_thread::yield();
}

void FreezingProxy::accept()
{
    const sockaddr_in address = loopback(m_target);
    Pair pair{::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC), tcpSocket()};
    // Where nobody is, the first word that is passed on finds that out.
    [[maybe_unused]] const int refused =
        ::connect(pair.target, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    pair.isFrozen = m_frozen == Frozen::Everything || m_frozen == Frozen::Gone;
    m_pairs.push_back(pair);
}

bool FreezingProxy::pass(int from, int to) const
{
    std::array<char, 65536> block;
    const ssize_t got = ::recv(from, block.data(), block.size(), MSG_DONTWAIT);
    if (got < 0)
        return true;
    return got > 0 && ::send(to, block.data(), static_cast<size_t>(got), MSG_NOSIGNAL) == got;
}

void FreezingProxy::work()
{
    auto before = Frozen::Nothing;
    while (!m_ending) {
        const Frozen frozen = m_frozen;
        for (Pair& pair : m_pairs)
            pair.isFrozen = pair.isFrozen || (frozen != before && frozen != Frozen::Nothing);
        before = frozen;
        std::vector<pollfd> all{{m_listener, POLLIN, 0}};
        for (const Pair& pair : m_pairs) {
            const short events = pair.isFrozen ? 0 : POLLIN;
            all.push_back({pair.isFrozen ? -1 : pair.client, events, 0});
            all.push_back({pair.isFrozen ? -1 : pair.target, events, 0});
        }
        ::poll(all.data(), all.size(), 10);
        std::erase_if(m_pairs, [&](const Pair& pair) {
            const bool lives =
                pair.isFrozen ? frozen != Frozen::Nothing && frozen != Frozen::Gone
                              : pass(pair.client, pair.target) && pass(pair.target, pair.client);
            if (!lives) {
                ::close(pair.client);
                ::close(pair.target);
            }
            return !lives;
        });
        if ((all.front().revents & POLLIN) != 0)
            accept();
        ++m_rounds;
    }
}
