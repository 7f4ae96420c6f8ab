#include "backend/http_server.h"

#include "backend/listen_socket.h"
#include "backend/outcome.h"

#include <array>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int workerThreads = 16;
constexpr size_t maxConnections = 4000;
constexpr int tickMs = 250;

constexpr auto idleTime = 15s;
constexpr auto headTime = 10s;
constexpr auto drainTime = 3s;
constexpr auto stopTime = 10s;
// A body or an answer may take this long, and as long again as its size needs at a slow pace.
constexpr auto transferTime = 15s;
constexpr qint64 slowestBytesPerSecond = 8 * 1024;

auto transferTimeOf(qint64 bytes)
{
    return transferTime + std::chrono::seconds(bytes / slowestBytesPerSecond);
}

// Every connection is a file; the usual soft limit is for desktop programs.
void raiseFileLimit()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 2 * maxConnections + 100);
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

HttpServer::HttpServer(const Router& router, ListenSocket& listener, const Options& options)
    : m_engine(router, options.trustedProxies)
    , m_listener(listener)
    , m_tls(options.tls)
    , m_poll(epoll_create1(EPOLL_CLOEXEC))
    , m_wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
    , m_workers(workerThreads)
{
    raiseFileLimit();
    epoll_event event = {EPOLLIN, {.fd = m_wake}};
    epoll_ctl(m_poll, EPOLL_CTL_ADD, m_wake, &event);
}

HttpServer::~HttpServer()
{
    ::close(m_wake);
    ::close(m_poll);
}

void HttpServer::run()
{
    Clock::time_point end = Clock::time_point::max();
    while (!m_stopping || (!m_connections.empty() && Clock::now() < end)) {
        // While it is full, newcomers wait in the kernel's queue.
        const bool accepting = !m_stopping && m_connections.size() < maxConnections;
        if (accepting != m_accepting) {
            epoll_event event = {EPOLLIN, {.fd = m_listener.handle()}};
            epoll_ctl(m_poll, accepting ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, m_listener.handle(),
                      &event);
            m_accepting = accepting;
        }
        std::array<epoll_event, 256> events;
        const int count = epoll_wait(m_poll, events.data(), events.size(), tickMs);
        for (int i = 0; i < count; ++i) {
            const int socket = events[static_cast<size_t>(i)].data.fd;
            if (socket == m_listener.handle())
                acceptAll();
            else if (const auto found = m_connections.find(socket); found != m_connections.end())
                handle(*found->second);
        }
        takeBackWorked();
        dropLate();
        if (m_stopAsked && !m_stopping) {
            beginStop();
            end = Clock::now() + stopTime;
        }
    }
}

void HttpServer::stop()
{
    m_stopAsked = true;
    wake();
}

void HttpServer::wake() const
{
    const quint64 one = 1;
    // A full counter wakes as well.
    [[maybe_unused]] const ssize_t written = ::write(m_wake, &one, sizeof one);
}

void HttpServer::beginStop()
{
    m_stopping = true;
    std::vector<const Connection*> idle;
    for (const auto& [socket, connection] : m_connections) {
        connection->closesAfterwards = true;
        if (connection->state == Connection::State::Receiving && connection->input().isEmpty())
            idle.push_back(connection.get());
    }
    for (const Connection* connection : idle)
        drop(*connection);
    epoll_ctl(m_poll, EPOLL_CTL_DEL, m_listener.handle(), nullptr);
    m_listener.close();
}

void HttpServer::acceptAll()
{
    while (m_connections.size() < maxConnections) {
        QString address;
        const int socket = m_listener.accept(address);
        if (socket < 0)
            return;
        auto connection =
            std::make_unique<Connection>(socket, address, m_tls ? m_tls->accept(socket) : nullptr);
        connection->deadline = Clock::now() + headTime;
        epoll_event event = {connection->events(), {.fd = socket}};
        epoll_ctl(m_poll, EPOLL_CTL_ADD, socket, &event);
        m_connections[socket] = std::move(connection);
    }
}

void HttpServer::handle(Connection& connection)
{
    switch (connection.state) {
    case Connection::State::Receiving:
        return receive(connection);
    case Connection::State::Sending:
        return send(connection);
    case Connection::State::Draining:
        if (connection.drain() == Connection::Io::Ended)
            drop(connection);
        return;
    case Connection::State::Working:
        return;
    }
}

void HttpServer::receive(Connection& connection)
{
    const bool wasIdle = connection.input().isEmpty();
    if (connection.receive() == Connection::Io::Ended)
        return drop(connection);
    if (wasIdle && !connection.input().isEmpty())
        connection.deadline = Clock::now() + headTime;
    proceed(connection);
}

// With what has been received: to a worker, to an answer, or on with waiting.
void HttpServer::proceed(Connection& connection)
{
    if (connection.isRequestReady())
        return dispatch(connection);
    if (connection.isHeadTooLarge()) {
        HttpEngine::refuseHead(connection);
        connection.state = Connection::State::Sending;
        return send(connection);
    }
    watch(connection);
}

void HttpServer::dispatch(Connection& connection)
{
    connection.state = Connection::State::Working;
    epoll_ctl(m_poll, EPOLL_CTL_DEL, connection.socket(), nullptr);
    m_workers.enqueue([this, &connection] {
        m_engine.process(connection);
        {
            const std::lock_guard lock(m_mutex);
            m_worked.push_back(&connection);
        }
        wake();
    });
}

void HttpServer::takeBackWorked()
{
    quint64 count = 0;
    if (::read(m_wake, &count, sizeof count) < 0)
        return;
    std::vector<Connection*> worked;
    {
        const std::lock_guard lock(m_mutex);
        worked.swap(m_worked);
    }
    for (Connection* connection : worked) {
        epoll_event event = {0, {.fd = connection->socket()}};
        epoll_ctl(m_poll, EPOLL_CTL_ADD, connection->socket(), &event);
        connection->closesAfterwards = connection->closesAfterwards || m_stopping;
        connection->state = Connection::State::Sending;
        connection->deadline =
            Clock::now() + transferTimeOf(connection->bytesToSend() + connection->bodyNeeded());
        send(*connection);
    }
}

void HttpServer::send(Connection& connection)
{
    const Connection::Io io = connection.send();
    if (io == Connection::Io::Ended)
        return drop(connection);
    if (io == Connection::Io::Waiting)
        return watch(connection);
    if (connection.bodyNeeded() > 0) {
        // Not answered yet; what was sent was leave to go on. The deadline stands.
        connection.state = Connection::State::Receiving;
        return receive(connection);
    }
    if (connection.closesAfterwards) {
        connection.finishSending();
        connection.state = Connection::State::Draining;
        connection.deadline = Clock::now() + drainTime;
        return watch(connection);
    }
    connection.state = Connection::State::Receiving;
    connection.deadline = Clock::now() + (connection.input().isEmpty() ? idleTime : headTime);
    // The next request may be here already.
    receive(connection);
}

void HttpServer::watch(Connection& connection)
{
    epoll_event event = {connection.events(), {.fd = connection.socket()}};
    epoll_ctl(m_poll, EPOLL_CTL_MOD, connection.socket(), &event);
}

void HttpServer::drop(const Connection& connection)
{
    m_connections.erase(connection.socket());
}

void HttpServer::dropLate()
{
    const auto now = Clock::now();
    if (now < m_nextLateCheck)
        return;
    m_nextLateCheck = now + std::chrono::milliseconds(tickMs);
    std::erase_if(m_connections, [now](const auto& entry) {
        const Connection& connection = *entry.second;
        return connection.state != Connection::State::Working && connection.deadline < now;
    });
}
