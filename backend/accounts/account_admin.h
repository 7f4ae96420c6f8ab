#pragma once

#include "backend/base/outcome.h"

#include <QList>
#include <QString>

class Database;
class Passwords;
class Store;

struct ListedAccount
{
    QString uuid;
    QString name;
    bool disabled = false;
    qint64 created = 0; // seconds since 1970, UTC
    int sessions = 0;
};

// What an operator does with accounts. Takes effect at once, also in servers that run.
class AccountAdmin
{
public:
    explicit AccountAdmin(Database& database) : m_database(database) {}

    // In alphabetical order; only those whose name holds `part`, whatever its case.
    QList<ListedAccount> list(const QString& part);
    // When its sessions were last used, the latest first; in seconds since 1970, UTC.
    Outcome<QList<qint64>> sessions(const QString& name);
    // Disabling ends every session.
    Outcome<Done> setDisabled(const QString& name, bool disabled);
    // Ends every session.
    Outcome<Done> resetPassword(const QString& name, const QString& password, Passwords& passwords);
    // With its sessions, its skin and model, and every name that is kept for it: nothing is left.
    Outcome<Done> remove(const QString& name, const Store& store);

    Outcome<QString> uuidOf(const QString& name);

private:
    void endSessions(const QString& uuid);

    Database& m_database;
};
