#pragma once

#include <QString>

class Database;

// How often, and how much, an account may do something within some time. Kept in the database: a
// restart forgets nothing, and servers that share a database count together. Thread-safe.
struct Allowance
{
    QString what;       // under which it is counted
    qint64 seconds = 0; // at most a day
    qint64 times = 0;   // 0: as often as they like
    qint64 amount = 0;  // in all; 0: as much as they like. The one that exceeds it is the last.

    // Counts one more and hands back 0, or counts nothing and hands back in how many seconds there
    // is room again. Within a Transaction, until whose end others who ask for this account wait.
    // What bears a time more than `seconds` ahead was counted by a clock that was wrong: it does
    // not count.
    int spend(Database& database, const QString& account, qint64 amountNow) const;

    // Drops what counts no more.
    static void sweep(Database& database);
};
