#pragma once

#include <QString>

namespace listen_socket {

// A listening, non-blocking socket on that address alone. Sets `port` to the one that it got.
// Throws Fault when the address cannot be had.
int open(const QString& host, int& port);

// The next client, or -1 when nobody waits. Sets `address` to where it comes from.
int accept(int listener, QString& address);

} // namespace listen_socket
