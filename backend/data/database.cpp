#include "backend/data/database.h"

#include "backend/base/log.h"
#include "backend/base/outcome.h"
#include "backend/data/postgres.h"

#include <QScopeGuard>
#include <QSet>
#include <QSqlError>
#include <QSqlRecord>
#include <QThread>
#include <QUrl>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

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
thread_local QSet<const Database*> withinTransaction;

// PostgreSQL is gone, or was: nothing of what was asked is done, or nobody knows.
struct Lost : Busy
{
    using Busy::Busy;
};

QString connectionName(const Database* database)
{
    return u"%1 %2"_s.arg(quintptr(database), 0, 16)
        .arg(quintptr(QThread::currentThreadId()), 0, 16);
}

[[noreturn]] void raise(const QSqlError& error)
{
    // SQLite's BUSY and LOCKED; PostgreSQL's lock_not_available, query_canceled, deadlock_detected.
    static const QStringList busy{u"5"_s,     u"6"_s,     u"261"_s,  u"517"_s,
                                  u"55P03"_s, u"57014"_s, u"40P01"_s};
    const QString text = u"database: "_s + error.text().simplified();
    if (busy.contains(error.nativeErrorCode()))
        throw Busy(text);
    throw Fault(text);
}

} // namespace

Database::Database(QString location, Patience patience)
    : m_location(std::move(location))
    , m_postgres(m_location.startsWith("postgresql://"_L1))
    , m_patience(patience)
    , m_watchdog(7s)
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

bool Database::isConnected() const
{
    return QSqlDatabase::database(connectionName(this), false).isOpen();
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
        connection.setConnectOptions(postgres::connectOptions(url));
    } else {
        connection.setDatabaseName(m_location);
    }
    if (!connection.open() && m_postgres)
        throw Lost(u"database: "_s + connection.lastError().text().simplified());
    if (!connection.isOpen())
        raise(connection.lastError());
    // FULL, because an answered registration must survive a power cut, not only a crash.
    static const QStringList forSqlite{
        u"PRAGMA busy_timeout = 5000"_s, u"PRAGMA journal_mode = WAL"_s,
        u"PRAGMA synchronous = FULL"_s, u"PRAGMA foreign_keys = ON"_s};
    // It would tell on standard error that a table exists already.
    QStringList forPostgres{u"SET client_min_messages = warning"_s, u"SET lock_timeout = 5000"_s};
    if (m_patience == Patience::Client)
        forPostgres.append(u"SET statement_timeout = 5000"_s);
    for (const QString& statement : m_postgres ? forPostgres : forSqlite) {
        QSqlQuery query(connection);
        if (!query.exec(statement))
            raise(query.lastError());
    }
}

QSqlQuery Database::run(const QString& sql, const QVariantList& values)
{
    const auto giveUp = std::chrono::steady_clock::now() + 2s;
    for (;;) {
        try {
            return runOnce(sql, values);
        } catch (const Lost&) {
            if (!mayTryAgain(sql) || std::chrono::steady_clock::now() > giveUp)
                throw;
        }
        std::this_thread::sleep_for(100ms);
    }
}

// Within a transaction what was done before is lost, too.
bool Database::mayTryAgain(const QString& sql) const
{
    return m_patience == Patience::Client && !withinTransaction.contains(this) &&
           (sql.startsWith("SELECT "_L1) || sql == "BEGIN"_L1);
}

QSqlQuery Database::runOnce(const QString& sql, const QVariantList& values)
{
    QSqlDatabase held = connection();
    QSqlQuery query(held);
    // PostgreSQL's driver would wait for every row anew, outside of the watch.
    query.setForwardOnly(!m_postgres);
    bool isAlive = true;
    {
        std::optional<Watchdog::Watch> watch;
        if (m_postgres && m_patience == Patience::Client)
            watch.emplace(m_watchdog, postgres::socketOf(held));
        if (execute(query, sql, values))
            return query;
        isAlive = !m_postgres || postgres::isOfLivingServer(query.lastError());
    }
    fail(held, query.lastError(), isAlive);
}

bool Database::execute(QSqlQuery& query, const QString& sql, const QVariantList& values)
{
    // PostgreSQL prepares neither BEGIN nor what makes tables.
    if (values.isEmpty())
        return query.exec(sql);
    if (!query.prepare(sql))
        return false;
    // A text that was never set is stored as the empty text, not as NULL.
    for (const QVariant& value : values) {
        const bool unset = value.typeId() == QMetaType::QString && value.toString().isNull();
        query.addBindValue(unset ? QVariant(u""_s) : value);
    }
    return query.exec();
}

void Database::fail(QSqlDatabase& held, const QSqlError& error, bool isAlive)
{
    if (isAlive)
        raise(error);
    // The next use opens a new one.
    held.close();
    throw Lost(u"the database is lost: "_s + error.text().simplified());
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

void Database::lockRow(const QString& table, const QString& key, const QString& value)
{
    if (m_postgres)
        run(u"SELECT 1 FROM %1 WHERE %2 = ? FOR UPDATE"_s.arg(table, key), {value});
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
    withinTransaction.insert(&m_database);
}

Transaction::~Transaction()
{
    const auto leave = qScopeGuard([this] { withinTransaction.remove(&m_database); });
    try {
        rollback();
    } catch (const Fault& fault) {
        // The connection is gone, and the transaction with it.
        logging::error(fault.text());
    }
}

void Transaction::rollback()
{
    // Without its connection the transaction is gone already.
    if (std::exchange(m_open, false) && m_database.isConnected())
        m_database.run(u"ROLLBACK"_s);
    withinTransaction.remove(&m_database);
}

void Transaction::commit()
{
    m_database.run(u"COMMIT"_s);
    m_open = false;
    withinTransaction.remove(&m_database);
}
