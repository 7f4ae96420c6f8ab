#include "backend/upkeep/checker.h"

#include "backend/base/digest.h"
#include "backend/data/database.h"

#include <QFile>

using namespace Qt::StringLiterals;

Checker::Report Checker::run(const Store::Progress& progress)
{
    Report report;
    checkDatabase(report);
    QList<StoredFile> files;
    qint64 total = 0;
    QSqlQuery row = m_database.run(u"SELECT sha256, size FROM files"_s);
    while (row.next()) {
        files.append({row.value(0).toByteArray(), row.value(1).toLongLong()});
        total += files.constLast().size;
    }
    qint64 done = 0;
    for (const StoredFile& file : std::as_const(files)) {
        if (const QString damage = damageOf(file); !damage.isEmpty())
            report.damage.append(damage);
        done += file.size;
        if (progress)
            progress(done, total);
    }
    report.files = static_cast<int>(files.size());
    report.unused = static_cast<int>(std::max<qsizetype>(m_store.list().size() - files.size(), 0));
    return report;
}

void Checker::checkDatabase(Report& report)
{
    // PostgreSQL guards its own pages and references.
    if (m_database.isPostgres())
        return;
    for (const QString& pragma : {u"PRAGMA integrity_check"_s, u"PRAGMA foreign_key_check"_s}) {
        QSqlQuery row = m_database.run(pragma);
        while (row.next()) {
            if (row.value(0).toString() != "ok"_L1)
                report.damage.append(u"database: "_s + row.value(0).toString());
        }
    }
}

QString Checker::damageOf(const StoredFile& stored) const
{
    QFile file(m_store.pathOf(stored.sha256));
    if (!file.open(QIODevice::ReadOnly))
        return u"%1: %2"_s.arg(file.fileName(), file.errorString());
    if (file.size() != stored.size)
        return u"%1: has %2 bytes instead of %3"_s.arg(file.fileName())
            .arg(file.size())
            .arg(stored.size);
    Digest digest;
    QByteArray block;
    while (!(block = file.read(1024 * 1024)).isEmpty())
        digest.add(block.constData(), block.size());
    if (digest.hex() != stored.sha256)
        return u"%1: its content is not what was stored"_s.arg(file.fileName());
    return {};
}
