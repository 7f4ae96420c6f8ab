#pragma once

#include "backend/base/outcome.h"
#include "backend/data/store.h"

#include <QByteArray>
#include <QMutex>
#include <QStringList>
#include <QVariant>

#include <optional>

class Database;

struct LauncherBuild
{
    QString platform; // "generic", "linux" or "archive"
    QString version;  // empty for an archive
};

// What players are offered: game versions, news, launcher builds and the Java runtime, and the
// manifest that lists them. Everything that changes it raises one revision number in the same
// transaction, so that servers of the same database notice. Thread-safe.
class Catalogue
{
public:
    // `fileOrigin` stands before "/files/..." in the manifest's addresses.
    Catalogue(Database& database, QString fileOrigin);

    Outcome<Done> addVersion(const QString& id, const QString& released, const StoredFile& jar);
    Outcome<Done> addNews(const QString& title, const QString& date, const QString& body);
    Outcome<Done> setLauncher(const LauncherBuild& build, const StoredFile& file);
    Outcome<Done> setRuntime(const StoredFile& archive);

    // Each refuses what is not published.
    Outcome<Done> removeVersion(const QString& id);
    Outcome<Done> removeNews(qint64 number);
    Outcome<Done> removeLauncher(const QString& platform);
    Outcome<Done> removeRuntime();
    // What is published, a line for each, for the operator.
    QStringList describe();

    struct Manifest
    {
        QByteArray json;
        QByteArray etag;
    };
    Manifest manifest();
    // The digest of the runtime archive, or nothing when none is published.
    std::optional<QByteArray> runtime();
    // That of the launcher's build for a platform.
    std::optional<QByteArray> launcher(const QString& platform);

    static std::optional<Refusal> refusalOfVersionId(const QString& id);

private:
    Outcome<Done> remove(const QString& sql, const QVariantList& values, const QString& otherwise);
    void raiseRevision();
    std::optional<QByteArray> digest(const QString& sql, const QVariantList& values);
    QByteArray build();
    QString urlOf(const QVariant& sha256) const;

    Database& m_database;
    QString m_fileOrigin;
    QMutex m_mutex;
    qint64 m_revision = -1;
    Manifest m_manifest;
};
