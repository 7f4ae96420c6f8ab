#pragma once

#include "backend/call.h"

#include <QStringList>

#include <httplib.h>

class Connection;
class Exchange;
class Router;

// One request on a connection, from the bytes of its head to the bytes of its answer. The HTTP
// library reads heads and writes answers; what it would do wrong is done here: bodies (its limit
// can be passed by with chunks or gzip), ranges, compression, files. Thread-safe.
class HttpEngine : private httplib::Server
{
public:
    HttpEngine(const Router& router, QStringList trustedProxies);

    // Answers the request at the front of the connection's input, or asks the connection for the
    // body that is missing (bodyNeeded() is then more than has arrived).
    void process(Connection& connection);
    // Answers a head that is too large to be read.
    static void refuseHead(Connection& connection);

private:
    Reply replyTo(const httplib::Request& request, Exchange& exchange) const;
    void put(const httplib::Request& request, httplib::Response& response, Exchange& exchange,
             const Reply& reply) const;

    QString clientOf(const httplib::Request& request, const Connection& connection) const;

    const Router& m_router;
    const QStringList m_trustedProxies;
};
