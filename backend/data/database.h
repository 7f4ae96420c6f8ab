#pragma once

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVariant>

// The relational half of the data directory: accounts, sessions and what is published. Each thread
// works on a connection of its own, opened when it first asks and closed when the thread ends.
// Every operation throws Fault when the database cannot do it.
class Database
{
public:
    // `location` is the path of an SQLite file, or a postgresql:// address.
    explicit Database(QString location);
    ~Database();
    Q_DISABLE_COPY_MOVE(Database)

    // Brings the schema to the last of these steps, all or none of those that are missing; refuses
    // a database that has seen more steps than these.
    void migrate(const QList<QStringList>& steps);

    // Prepares and runs one statement on the calling thread's connection.
    QSqlQuery run(const QString& sql, const QVariantList& values = {});
    // The first row, or nothing. Unlike a query that is kept, it leaves no read open, after which
    // SQLite would refuse a write as soon as somebody else has written in between.
    QVariantList row(const QString& sql, const QVariantList& values = {});
    // The first column of the first row, or an invalid value when there is no row.
    QVariant value(const QString& sql, const QVariantList& values = {});

    bool isPostgres() const { return m_postgres; }

private:
    friend class Transaction;

    QSqlDatabase connection();
    void open(QSqlDatabase& connection) const;
    [[noreturn]] void fail(QSqlDatabase& held, const QSqlQuery& query) const;
    int schemaVersion();

    QString m_location;
    bool m_postgres = false;
};

// A write transaction of the calling thread. Rolls back unless commit() was reached.
class Transaction
{
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Q_DISABLE_COPY_MOVE(Transaction)

    void commit();

private:
    Database& m_database;
    bool m_open = true;
};
