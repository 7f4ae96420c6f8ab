#pragma once

#include "tests/support/http_server.h"

#include <QString>

// What stands outside of the window that bench_gaps measures: the installed jars, the game, and the
// server with the manifest, the downloads and the accounts.
class GapServers
{
public:
    static constexpr qint64 jarBytes = 300LL * 1024 * 1024;

    // The window's home directory gets what is installed already.
    GapServers(const QString& scenario, const QString& home);

    QString origin() const { return m_server.origin(); }

private:
    void installJars(int count, qint64 bytes);
    void serveManifest(const QByteArray& path, int versions, int news);
    QByteArray serve(const QByteArray& path, const QByteArray& body);
    void serveUpdate();
    void serveRuntime();

    QString m_game;
    HttpServer m_server;
    QByteArray m_digest; // of every version's jar
};
