#include "backend/catalogue/catalogue.h"

#include "backend/base/digest.h"
#include "backend/data/database.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutexLocker>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

Catalogue::Catalogue(Database& database, QString fileOrigin)
    : m_database(database), m_fileOrigin(std::move(fileOrigin))
{
}

std::optional<Refusal> Catalogue::refusalOfVersionId(const QString& id)
{
    // The launcher makes a directory and a file name of it.
    static const QRegularExpression allowed(u"^[A-Za-z0-9][A-Za-z0-9._+-]{0,63}\\z"_s);
    if (allowed.match(id).hasMatch())
        return {};
    return Refusal{400, u"A version id has 1 to 64 letters, digits, '.', '_', '+' or '-', and "
                        "begins with a letter or a digit."_s};
}

Outcome<Done> Catalogue::addVersion(const QString& id, const QString& released,
                                    const StoredFile& jar)
{
    if (const auto refusal = refusalOfVersionId(id))
        return *refusal;
    Transaction transaction(m_database);
    raiseRevision();
    Store::note(m_database, jar);
    // A version published again keeps its place in the list.
    m_database.run(u"INSERT INTO versions (id, file, released, position)"
                   " SELECT ?, ?, ?, COALESCE(MAX(position), 0) + 1 FROM versions WHERE true"
                   " ON CONFLICT (id) DO UPDATE SET file = excluded.file,"
                   " released = excluded.released"_s,
                   {id, QString::fromLatin1(jar.sha256), released});
    transaction.commit();
    return Done();
}

Outcome<Done> Catalogue::addNews(const QString& title, const QString& date, const QString& body)
{
    if (title.trimmed().isEmpty())
        return Refusal{400, u"News need a title."_s};
    Transaction transaction(m_database);
    raiseRevision();
    m_database.run(u"INSERT INTO news (position, title, date, body)"
                   " SELECT COALESCE(MAX(position), 0) + 1, ?, ?, ? FROM news"_s,
                   {title, date, body});
    transaction.commit();
    return Done();
}

Outcome<Done> Catalogue::setLauncher(const LauncherBuild& build, const StoredFile& file)
{
    Transaction transaction(m_database);
    raiseRevision();
    Store::note(m_database, file);
    m_database.run(u"INSERT INTO launchers (platform, version, file) VALUES (?, ?, ?)"
                   " ON CONFLICT (platform) DO UPDATE SET version = excluded.version,"
                   " file = excluded.file"_s,
                   {build.platform, build.version, QString::fromLatin1(file.sha256)});
    transaction.commit();
    return Done();
}

Outcome<Done> Catalogue::setRuntime(const StoredFile& archive)
{
    Transaction transaction(m_database);
    raiseRevision();
    Store::note(m_database, archive);
    m_database.run(u"INSERT INTO runtimes (platform, file) VALUES ('linux/x64', ?)"
                   " ON CONFLICT (platform) DO UPDATE SET file = excluded.file"_s,
                   {QString::fromLatin1(archive.sha256)});
    transaction.commit();
    return Done();
}

std::optional<QByteArray> Catalogue::runtime()
{
    return digest(u"SELECT file FROM runtimes WHERE platform = 'linux/x64'"_s, {});
}

std::optional<QByteArray> Catalogue::launcher(const QString& platform)
{
    return digest(u"SELECT file FROM launchers WHERE platform = ?"_s, {platform});
}

std::optional<QByteArray> Catalogue::digest(const QString& sql, const QVariantList& values)
{
    const QVariant file = m_database.value(sql, values);
    if (!file.isValid())
        return {};
    return file.toByteArray();
}

Catalogue::Manifest Catalogue::manifest()
{
    const qint64 revision = m_database.value(u"SELECT revision FROM catalogue"_s).toLongLong();
    const QMutexLocker lock(&m_mutex);
    if (revision != m_revision) {
        m_manifest.json = build();
        m_manifest.etag = '"' + Digest::of(m_manifest.json).left(32) + '"';
        m_revision = revision;
    }
    return m_manifest;
}

QByteArray Catalogue::build()
{
    QJsonArray versions;
    QSqlQuery row =
        m_database.run(u"SELECT id, file, released FROM versions ORDER BY position DESC"_s);
    while (row.next()) {
        versions.append(QJsonObject{{u"id"_s, row.value(0).toString()},
                                    {u"url"_s, urlOf(row.value(1))},
                                    {u"sha256"_s, row.value(1).toString()},
                                    {u"released"_s, row.value(2).toString()}});
    }
    QJsonArray news;
    row = m_database.run(u"SELECT title, date, body FROM news ORDER BY position DESC"_s);
    while (row.next()) {
        news.append(QJsonObject{{u"title"_s, row.value(0).toString()},
                                {u"date"_s, row.value(1).toString()},
                                {u"body"_s, row.value(2).toString()}});
    }
    QJsonObject manifest{{u"versions"_s, versions}, {u"news"_s, news}};
    row = m_database.run(u"SELECT platform, version, file FROM launchers"_s);
    while (row.next()) {
        const QString platform = row.value(0).toString();
        QJsonObject build{{u"url"_s, urlOf(row.value(2))}, {u"sha256"_s, row.value(2).toString()}};
        if (platform != "archive"_L1)
            build.insert(u"version"_s, row.value(1).toString());
        manifest.insert(platform == "generic"_L1 ? u"launcher"_s
                        : platform == "linux"_L1 ? u"launcherLinux"_s
                                                 : u"launcherArchive"_s,
                        build);
    }
    return QJsonDocument(manifest).toJson(QJsonDocument::Compact);
}

Outcome<Done> Catalogue::removeVersion(const QString& id)
{
    return remove(u"DELETE FROM versions WHERE id = ?"_s, {id},
                  u"there is no version \"%1\""_s.arg(id));
}

Outcome<Done> Catalogue::removeNews(qint64 number)
{
    return remove(u"DELETE FROM news WHERE position = ?"_s, {number},
                  u"there are no news of that number; \"list\" shows the numbers"_s);
}

Outcome<Done> Catalogue::removeLauncher(const QString& platform)
{
    return remove(u"DELETE FROM launchers WHERE platform = ?"_s, {platform},
                  u"no launcher is published for \"%1\""_s.arg(platform));
}

Outcome<Done> Catalogue::removeRuntime()
{
    return remove(u"DELETE FROM runtimes"_s, {}, u"no runtime is published"_s);
}

Outcome<Done> Catalogue::remove(const QString& sql, const QVariantList& values,
                                const QString& otherwise)
{
    Transaction transaction(m_database);
    raiseRevision();
    if (m_database.run(sql, values).numRowsAffected() < 1)
        return Refusal{404, otherwise};
    transaction.commit();
    return Done();
}

QStringList Catalogue::describe()
{
    QStringList lines;
    const auto add = [&](const QString& line, const QString& sql) {
        QSqlQuery row = m_database.run(sql);
        while (row.next())
            lines.append(line.arg(row.value(0).toString(), row.value(1).toString(),
                                  row.value(2).toString()));
    };
    add(u"version %1  %2  %3"_s,
        u"SELECT id, released, file FROM versions ORDER BY position DESC"_s);
    add(u"news %1  %3  %2"_s, u"SELECT position, date, title FROM news ORDER BY position DESC"_s);
    add(u"launcher %1  %2  %3"_s,
        u"SELECT platform, version, file FROM launchers ORDER BY platform"_s);
    add(u"runtime %1  %3%2"_s, u"SELECT platform, '', file FROM runtimes"_s);
    return lines;
}

QString Catalogue::urlOf(const QVariant& sha256) const
{
    return m_fileOrigin + Store::addressOf(sha256.toByteArray());
}

void Catalogue::raiseRevision()
{
    // First in every transaction: whoever publishes at the same time waits for this row.
    m_database.run(u"UPDATE catalogue SET revision = revision + 1"_s);
}
