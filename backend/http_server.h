#pragma once

#include <QString>

#include <memory>

class Router;
namespace httplib {
class Server;
}

// The HTTP side: turns bytes into calls for the router and replies into bytes.
class HttpServer
{
public:
    explicit HttpServer(const Router& router);
    ~HttpServer();
    Q_DISABLE_COPY_MOVE(HttpServer)

    // Takes the address for itself alone (port 0: any free one) and hands back the port. Throws
    // Fault when it is taken.
    int bind(const QString& host, int port);
    // Serves until stop() is called from another thread; requests under way are finished.
    void run();
    void stop();

private:
    const Router& m_router;
    std::unique_ptr<httplib::Server> m_server;
};
