#include "bench/gap_servers.h"

#include "tests/support/files.h"
#include "tests/support/zip_builder.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 installedBytes = 50LL * 1024 * 1024;
constexpr qint64 runtimeBytes = 100LL * 1024 * 1024;
constexpr qint64 updateBytes = 60LL * 1024 * 1024;

QByteArray randomBytes(qint64 size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator(1).fillRange(reinterpret_cast<quint32*>(bytes.data()),
                                  size / qint64{sizeof(quint32)});
    return bytes;
}

QByteArray sha256(const QByteArray& bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

} // namespace

GapServers::GapServers(const QString& scenario, const QString& home) : m_game(home + u"/game")
{
    const bool prints = scenario == u"output";
    writeScript(home + u"/game-java",
                prints ? "yes '[12:00:00] [main/INFO]: what a game says' | head -c 30000000" : "");
    m_server.answer("/auth/validate", HttpAnswer::json("{}"));
    serveManifest("/empty.json", 0, 0);
    if (scenario == u"start" || scenario == u"refill") {
        installJars(20, installedBytes);
        serveManifest("/manifest.json", 20, 5);
    } else if (scenario == u"manifest") {
        serveManifest("/manifest.json", 2000, 500);
    } else if (scenario == u"jar") {
        m_digest = serve("/jar", randomBytes(jarBytes));
        serveManifest("/manifest.json", 1, 5);
    } else {
        installJars(1, 1024);
        serveManifest("/manifest.json", 1, 5);
    }
    if (scenario == u"update")
        serveUpdate();
    if (scenario == u"runtime")
        serveRuntime();
}

QByteArray GapServers::serve(const QByteArray& path, const QByteArray& body)
{
    m_server.answer(path, HttpAnswer::ok(body));
    return sha256(body);
}

// Sparse files: the disk is not what is measured.
void GapServers::installJars(int count, qint64 bytes)
{
    m_digest = sha256(QByteArray(bytes, '\0'));
    for (int i = 0; i < count; ++i) {
        QFile jar(u"%1/versions/1.%2/tessellan-1.%2.jar"_s.arg(m_game).arg(i));
        QDir().mkpath(QFileInfo(jar).absolutePath());
        if (!jar.open(QIODevice::WriteOnly) || !jar.resize(bytes))
            qFatal("cannot write %s", qPrintable(jar.fileName()));
    }
}

void GapServers::serveManifest(const QByteArray& path, int versions, int news)
{
    QJsonArray versionArray;
    for (int i = 0; i < versions; ++i)
        versionArray.append(QJsonObject{{u"id"_s, u"1.%1"_s.arg(i)},
                                        {u"url"_s, m_server.url(u"/jar"_s)},
                                        {u"sha256"_s, QString::fromLatin1(m_digest)},
                                        {u"released"_s, u"2026-01-01"_s}});
    QJsonArray newsArray;
    for (int i = 0; i < news; ++i)
        newsArray.append(
            QJsonObject{{u"title"_s, u"What is new in release %1 of the game"_s.arg(i)},
                        {u"date"_s, u"2026-01-01"_s},
                        {u"body"_s, u"A paragraph about this release.\n"_s.repeated(20)}});
    m_server.answer(path, HttpAnswer::json(QJsonDocument(QJsonObject{{u"versions"_s, versionArray},
                                                                     {u"news"_s, newsArray}})
                                               .toJson()));
}

// A program that ends at once, should it ever be started.
void GapServers::serveUpdate()
{
    const QByteArray program = "#!/bin/sh\nexit 0\n" + randomBytes(updateBytes);
    const QByteArray digest = serve("/launcher", program);
    const QJsonObject launcher{{u"version"_s, u"9.9.9"_s},
                               {u"url"_s, m_server.url(u"/launcher"_s)},
                               {u"sha256"_s, QString::fromLatin1(digest)}};
    m_server.answer("/update.json",
                    HttpAnswer::json(QJsonDocument(QJsonObject{{u"versions"_s, QJsonArray()},
                                                               {u"launcherLinux"_s, launcher}})
                                         .toJson()));
}

void GapServers::serveRuntime()
{
    ZipBuilder archive = ZipBuilder::runtime("jdk-11", "exit 0");
    constexpr int files = 20;
    for (int i = 0; i < files; ++i)
        archive.file("jdk-11/lib/modules" + QByteArray::number(i),
                     randomBytes(runtimeBytes / files));
    serve("/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse", archive.bytes());
}
