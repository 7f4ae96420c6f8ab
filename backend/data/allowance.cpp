#include "backend/data/allowance.h"

#include "backend/data/database.h"

#include <QDateTime>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 day = 24LL * 60 * 60;

} // namespace

int Allowance::spend(Database& database, const QString& account, qint64 amountNow) const
{
    if (times == 0 && amount == 0)
        return 0;
    database.lockRow(u"accounts"_s, u"uuid"_s, account);
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    // From the latest back; where the budget is reached, that one has to be forgotten first.
    QSqlQuery row = database.run(u"SELECT spent_at, amount FROM spendings WHERE account = ?"
                                 " AND what = ? AND spent_at > ? AND spent_at <= ?"
                                 " ORDER BY spent_at DESC"_s,
                                 {account, what, now - seconds, now + seconds});
    qint64 timesSpent = 0;
    qint64 amountSpent = 0;
    while (row.next()) {
        ++timesSpent;
        amountSpent += row.value(1).toLongLong();
        if ((times > 0 && timesSpent >= times) || (amount > 0 && amountSpent >= amount)) {
            const qint64 left = row.value(0).toLongLong() + seconds - now;
            return static_cast<int>(std::max<qint64>(left, 1));
        }
    }
    database.run(u"INSERT INTO spendings (account, what, spent_at, amount) VALUES (?, ?, ?, ?)"_s,
                 {account, what, now, amountNow});
    return 0;
}

void Allowance::sweep(Database& database)
{
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    database.run(u"DELETE FROM spendings WHERE spent_at <= ? OR spent_at > ?"_s,
                 {now - day, now + day});
}
