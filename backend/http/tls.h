#pragma once

#include <boost/asio/ssl/context.hpp>

#include <QString>

namespace http {

// Of a server with that certificate and key, PEM files both: TLS 1.2 and 1.3 with authenticated
// ciphers alone. Throws Fault when it cannot use one of them.
boost::asio::ssl::context secureContext(const QString& certificate, const QString& key);

} // namespace http
