#pragma once

#include "backend/connection.h"
#include "backend/http_engine.h"
#include "backend/tls.h"
#include "backend/worker_pool.h"

#include <QStringList>

#include <atomic>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

class ListenSocket;
class Router;

// The network side of the server: one loop that waits for all clients at once, and a few workers
// that answer. A worker is never kept by a slow client: it gets a request when all of it is there
// and leaves the answer to the loop. Every state of a connection has a deadline.
class HttpServer
{
public:
    struct Options
    {
        const Tls* tls = nullptr; // none: plain HTTP
        QStringList trustedProxies;
    };
    HttpServer(const Router& router, ListenSocket& listener, const Options& options);
    ~HttpServer();
    Q_DISABLE_COPY_MOVE(HttpServer)

    // Serves until stop(); what is being answered then is still answered.
    void run();
    // From any thread.
    void stop();

private:
    using Clock = Connection::Clock;

    void acceptAll();
    void handle(Connection& connection);
    void receive(Connection& connection);
    void proceed(Connection& connection);
    void send(Connection& connection);
    void dispatch(Connection& connection);
    void takeBackWorked();
    void watch(Connection& connection);
    void drop(const Connection& connection);
    void dropLate();
    void beginStop();
    void wake() const;

    HttpEngine m_engine;
    ListenSocket& m_listener;
    const Tls* m_tls;
    int m_poll;
    int m_wake;
    bool m_accepting = false;
    bool m_stopping = false;
    Clock::time_point m_nextLateCheck;
    std::unordered_map<int, std::unique_ptr<Connection>> m_connections;
    // Shared with the workers and stop().
    std::mutex m_mutex;
    std::vector<Connection*> m_worked;
    std::atomic<bool> m_stopAsked = false;
    // Last, so that the workers are gone before anything that they use.
    WorkerPool m_workers;
};
