#pragma once

#include "backend/base/outcome.h"

#include <QList>
#include <QString>

class Database;
class Passwords;

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
    AccountAdmin(Database& database, Passwords& passwords)
        : m_database(database), m_passwords(passwords)
    {
    }

    // In alphabetical order; only those whose name holds `part`, whatever its case.
    QList<ListedAccount> list(const QString& part);
    // Disabling ends every session.
    Outcome<Done> setDisabled(const QString& name, bool disabled);
    // Ends every session.
    Outcome<Done> resetPassword(const QString& name, const QString& password);

private:
    Outcome<QString> uuidOf(const QString& name);
    void endSessions(const QString& uuid);

    Database& m_database;
    Passwords& m_passwords;
};
