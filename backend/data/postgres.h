#pragma once

#include <QSqlDatabase>
#include <QSqlError>
#include <QUrl>

// What Qt's PostgreSQL driver does not say or take by itself. Any thread.
namespace postgres {

// The parameters of an address, which are libpq's, in the form that Qt passes on: one that is given
// twice counts as it was given last. Throws Fault for what cannot be passed on.
QString connectOptions(const QUrl& address);

// Whether PostgreSQL said so itself, and not that it goes: a server that was restarted leaves a
// dead connection behind.
bool isOfLivingServer(const QSqlError& error);

// Qt's driver does not tell the socket, libpq does. The driver has loaded it already. Throws Fault.
int socketOf(const QSqlDatabase& connection);

} // namespace postgres
