#pragma once

#include <QByteArray>
#include <QString>

// Addresses of clients, as texts.
namespace network_address {

// The address without port and brackets, in the form that is counted and logged: an IPv4 address
// that was written as an IPv6 one (::ffff:192.0.2.1) is an IPv4 address. Empty when it is none.
QString plain(const QString& text);
// The last of a list of addresses, as X-Forwarded-For has them, or `otherwise`. A proxy appends
// what it saw: what stands before is the client's own word.
QString lastOf(const QByteArray& list, const QString& otherwise);
// Whoever has one IPv6 address has 2^64 of them: they count as one.
QString network(const QString& address);

} // namespace network_address
