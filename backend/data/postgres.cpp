#include "backend/data/postgres.h"

#include "backend/base/outcome.h"

#include <QSqlDriver>
#include <QStringList>
#include <QUrlQuery>
#include <QVariant>

#include <dlfcn.h>

using namespace Qt::StringLiterals;

namespace postgres {

QString connectOptions(const QUrl& address)
{
    QStringList options{u"connect_timeout=5"_s, u"keepalives_idle=30"_s};
    const auto given = QUrlQuery(address).queryItems(QUrl::FullyDecoded);
    for (const auto& [name, value] : given) {
        if (name.contains(u';') || value.contains(u';'))
            throw Fault(u"database: \";\" cannot be passed on to libpq: "_s + name);
        const QString escaped = QString(value).replace(u'\\', u"\\\\"_s).replace(u'\'', u"\\'"_s);
        options.append(u"%1='%2'"_s.arg(name, escaped));
    }
    return options.join(u';');
}

bool isOfLivingServer(const QSqlError& error)
{
    const QString code = error.nativeErrorCode();
    return !code.isEmpty() && !code.startsWith("57P"_L1) && !code.startsWith("08"_L1);
}

// Qt's driver does not tell the socket, libpq does. The driver has loaded it already.
int socketOf(const QSqlDatabase& connection)
{
    using Ask = int (*)(const void* connection);
    static const auto ask = [] {
        void* const library = ::dlopen("libpq.so.5", RTLD_LAZY);
        return library ? reinterpret_cast<Ask>(::dlsym(library, "PQsocket")) : nullptr;
    }();
    // Qt documents the one name of the type and gives the other.
    const QVariant handle = connection.driver()->handle();
    const QByteArray type = handle.typeName();
    if (!ask || (type != "PGconn*" && type != "pg_conn*"))
        throw Fault(u"the database driver has no libpq connection"_s);
    return ask(*static_cast<const void* const*>(handle.constData()));
}

} // namespace postgres
