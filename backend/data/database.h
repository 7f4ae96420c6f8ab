#pragma once

#include "backend/data/patience.h"
#include "backend/data/watchdog.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVariant>

// The relational half of the data directory: accounts, sessions and what is published. Each thread
// works on a connection of its own, opened when it first asks and closed when the thread ends.
// Every operation throws Fault when the database cannot do it, and Busy when it may in a moment:
// somebody held a lock for five seconds, or PostgreSQL does not answer. With a client's patience no
// statement takes longer than seven seconds there; one that takes five is cancelled.
class Database
{
public:
    // `location` is the path of an SQLite file, or a postgresql:// address, whose parameters are
    // libpq's ("?sslmode=verify-full").
    explicit Database(QString location, Patience patience = Patience::Endless);
    ~Database();
    Q_DISABLE_COPY_MOVE(Database)

    // Brings the schema to the last of these steps, all or none of those that are missing; refuses
    // a database that has seen more steps than these.
    void migrate(const QList<QStringList>& steps);

    // Prepares and runs one statement on the calling thread's connection. With a client's patience
    // what changes nothing is tried again for two seconds when PostgreSQL is lost: it restarts.
    QSqlQuery run(const QString& sql, const QVariantList& values = {});
    // The first row, or nothing. Unlike a query that is kept, it leaves no read open, after which
    // SQLite would refuse a write as soon as somebody else has written in between.
    QVariantList row(const QString& sql, const QVariantList& values = {});
    // The first column of the first row, or an invalid value when there is no row.
    QVariant value(const QString& sql, const QVariantList& values = {});

    // Within a Transaction: until it ends, others who ask for that row wait. SQLite lets one
    // transaction write at a time anyway.
    void lockRow(const QString& table, const QString& key, const QString& value);

    bool isPostgres() const { return m_postgres; }
    const QString& location() const { return m_location; }

private:
    friend class Transaction;

    QSqlQuery runOnce(const QString& sql, const QVariantList& values);
    bool mayTryAgain(const QString& sql) const;
    QSqlDatabase connection();
    bool isConnected() const;
    void open(QSqlDatabase& connection) const;
    static bool execute(QSqlQuery& query, const QString& sql, const QVariantList& values);
    [[noreturn]] static void fail(QSqlDatabase& held, const QSqlError& error, bool isAlive);
    int schemaVersion();

    QString m_location;
    bool m_postgres = false;
    Patience m_patience;
    Watchdog m_watchdog;
};

// A write transaction of the calling thread. Rolls back unless commit() was reached.
class Transaction
{
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Q_DISABLE_COPY_MOVE(Transaction)

    void commit();
    // What the destructor does otherwise.
    void rollback();

private:
    Database& m_database;
    bool m_open = true;
};
