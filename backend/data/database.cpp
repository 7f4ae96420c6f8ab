#include "backend/data/database.h"

#include "backend/base/outcome.h"

#include <QSqlError>
#include <QSqlRecord>
#include <QThread>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

// Closes the connections of a thread when it ends; Qt wants that done by the thread itself.
class ThreadConnections
{
public:
    ~ThreadConnections()
    {
        for (const QString& name : std::as_const(m_names))
            QSqlDatabase::removeDatabase(name);
    }
    ThreadConnections() = default;
    Q_DISABLE_COPY_MOVE(ThreadConnections)

    void add(const QString& name) { m_names.append(name); }
    void close(const QString& name)
    {
        if (m_names.removeOne(name))
            QSqlDatabase::removeDatabase(name);
    }

private:
    QStringList m_names;
};

thread_local ThreadConnections threadConnections;

QString connectionName(const Database* database)
{
    return u"%1 %2"_s.arg(quintptr(database), 0, 16)
        .arg(quintptr(QThread::currentThreadId()), 0, 16);
}

[[noreturn]] void raise(const QSqlError& error)
{
    // SQLite's BUSY and LOCKED; PostgreSQL's lock_not_available.
    static const QStringList busy{u"5"_s, u"6"_s, u"261"_s, u"517"_s, u"55P03"_s};
    const QString text = u"database: "_s + error.text().simplified();
    if (busy.contains(error.nativeErrorCode()))
        throw Busy(text);
    throw Fault(text);
}

} // namespace

Database::Database(QString location)
    : m_location(std::move(location)), m_postgres(m_location.startsWith("postgresql://"_L1))
{
}

Database::~Database()
{
    threadConnections.close(connectionName(this));
}

QSqlDatabase Database::connection()
{
    const QString name = connectionName(this);
    QSqlDatabase connection = QSqlDatabase::database(name, false);
    if (!connection.isValid()) {
        connection = QSqlDatabase::addDatabase(m_postgres ? u"QPSQL"_s : u"QSQLITE"_s, name);
        threadConnections.add(name);
    }
    if (!connection.isOpen())
        open(connection);
    return connection;
}

void Database::open(QSqlDatabase& connection) const
{
    if (m_postgres) {
        const QUrl url(m_location);
        connection.setHostName(url.host());
        connection.setPort(url.port(5432));
        connection.setDatabaseName(url.path().mid(1));
        connection.setUserName(url.userName(QUrl::FullyDecoded));
        connection.setPassword(url.password(QUrl::FullyDecoded));
        connection.setConnectOptions(u"connect_timeout=5"_s);
    } else {
        connection.setDatabaseName(m_location);
    }
    if (!connection.open())
        raise(connection.lastError());
    // FULL, because an answered registration must survive a power cut, not only a crash.
    static const QStringList forSqlite{
        u"PRAGMA busy_timeout = 5000"_s, u"PRAGMA journal_mode = WAL"_s,
        u"PRAGMA synchronous = FULL"_s, u"PRAGMA foreign_keys = ON"_s};
    // It would tell on standard error that a table exists already.
    static const QStringList forPostgres{u"SET client_min_messages = warning"_s,
                                         u"SET lock_timeout = 5000"_s};
    for (const QString& statement : m_postgres ? forPostgres : forSqlite) {
        QSqlQuery query(connection);
        if (!query.exec(statement))
            raise(query.lastError());
    }
}

QSqlQuery Database::run(const QString& sql, const QVariantList& values)
{
    QSqlDatabase held = connection();
    QSqlQuery query(held);
    query.setForwardOnly(true);
    // PostgreSQL prepares neither BEGIN nor what makes tables.
    if (values.isEmpty()) {
        if (!query.exec(sql))
            fail(held, query);
        return query;
    }
    if (!query.prepare(sql))
        fail(held, query);
    // A text that was never set is stored as the empty text, not as NULL.
    for (const QVariant& value : values) {
        const bool unset = value.typeId() == QMetaType::QString && value.toString().isNull();
        query.addBindValue(unset ? QVariant(u""_s) : value);
    }
    if (!query.exec())
        fail(held, query);
    return query;
}

void Database::fail(QSqlDatabase& held, const QSqlQuery& query) const
{
    const QSqlError error = query.lastError();
    // A server that was restarted leaves a dead connection behind; the next use opens a new one.
    if (m_postgres && !QSqlQuery(held).exec(u"SELECT 1"_s))
        held.close();
    raise(error);
}

QVariantList Database::row(const QString& sql, const QVariantList& values)
{
    QSqlQuery query = run(sql, values);
    QVariantList columns;
    if (query.next()) {
        for (int i = 0; i < query.record().count(); ++i)
            columns.append(query.value(i));
    }
    return columns;
}

QVariant Database::value(const QString& sql, const QVariantList& values)
{
    return row(sql, values).value(0);
}

int Database::schemaVersion()
{
    run(u"CREATE TABLE IF NOT EXISTS schema_version (version INTEGER NOT NULL)"_s);
    return value(u"SELECT version FROM schema_version"_s).toInt();
}

void Database::migrate(const QList<QStringList>& steps)
{
    Transaction transaction(*this);
    // Two programs that start at once must not both make the tables.
    if (m_postgres)
        run(u"SELECT pg_advisory_xact_lock(7351)"_s);
    const int found = schemaVersion();
    if (found > steps.size())
        throw Fault(u"the database was written by a newer version of this program (schema %1, this "
                    "program knows %2)"_s.arg(found)
                        .arg(steps.size()));
    if (found == steps.size())
        return;
    for (const QStringList& step : steps.mid(found)) {
        for (const QString& statement : step)
            run(statement);
    }
    run(u"DELETE FROM schema_version"_s);
    run(u"INSERT INTO schema_version (version) VALUES (?)"_s, {steps.size()});
    transaction.commit();
}

Transaction::Transaction(Database& database) : m_database(database)
{
    // IMMEDIATE: a transaction that reads first and writes later would otherwise fail at once when
    // another has written in between, whatever the busy timeout.
    m_database.run(database.isPostgres() ? u"BEGIN"_s : u"BEGIN IMMEDIATE"_s);
}

Transaction::~Transaction()
{
    if (!m_open)
        return;
    try {
        m_database.run(u"ROLLBACK"_s);
    } catch (const Fault&) {
        // The connection is gone, and the transaction with it.
    }
}

void Transaction::commit()
{
    m_database.run(u"COMMIT"_s);
    m_open = false;
}
