#include "backend/account_api.h"
#include "backend/accounts.h"
#include "backend/appearance.h"
#include "backend/appearance_api.h"
#include "backend/catalogue.h"
#include "backend/catalogue_api.h"
#include "backend/command.h"
#include "backend/commands.h"
#include "backend/http_server.h"
#include "backend/passwords.h"
#include "backend/router.h"
#include "backend/site.h"
#include "backend/stop_signals.h"

#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

struct Listen
{
    QString host;
    int port = 0;
};

// "ADDR:PORT", an IPv6 address in brackets.
std::optional<Listen> parseListen(const QString& text)
{
    const qsizetype colon = text.lastIndexOf(u':');
    bool isNumber = false;
    const int port = QStringView(text).mid(colon + 1).toInt(&isNumber);
    QString host = text.left(std::max<qsizetype>(colon, 0));
    if (host.startsWith(u'[') && host.endsWith(u']'))
        host = host.mid(1, host.size() - 2);
    else if (host.contains(u':'))
        return {};
    if (host.isEmpty() || !isNumber || port < 0 || port > 65535)
        return {};
    return Listen{host, port};
}

// An origin without its last slash, or nothing when it is none: "https://host[:port][/path]".
std::optional<QString> parseOrigin(QString text)
{
    while (text.endsWith(u'/'))
        text.chop(1);
    const QUrl url(text, QUrl::StrictMode);
    const bool web = url.scheme() == "http"_L1 || url.scheme() == "https"_L1;
    if (!url.isValid() || !web || url.host().isEmpty() || url.hasQuery() || url.hasFragment())
        return {};
    return text;
}

bool isAnyAddress(const QString& host)
{
    return host == "0.0.0.0"_L1 || host == "::"_L1;
}

QString originOf(const Listen& listen)
{
    const QString host = listen.host.contains(u':') ? u"[%1]"_s.arg(listen.host) : listen.host;
    return u"http://%1:%2"_s.arg(host).arg(listen.port);
}

} // namespace

namespace commands {

int serve(const QStringList& words)
{
    command::Options options(u"serve"_s, u"Runs the server until SIGTERM or SIGINT."_s);
    options.add(u"listen"_s, u"Where to listen (port 0: any free one)."_s, u"ADDR:PORT"_s,
                u"127.0.0.1:18461"_s);
    options.add(u"public-origin"_s,
                u"How players reach this server; stands in the manifest's addresses. "
                "Default: http://ADDR:PORT."_s,
                u"URL"_s);
    options.add(u"files-origin"_s,
                u"Where players fetch files, when another server or a CDN hands out the directory "
                "files/ of the data directory as URL/files/."_s,
                u"URL"_s);
    if (const auto over = options.parse(words))
        return *over;

    auto listen = parseListen(options.value(u"listen"_s));
    if (!listen)
        return command::wrongUsage(u"--listen must be ADDR:PORT, such as 127.0.0.1:18461."_s,
                                   u"serve"_s);
    if (isAnyAddress(listen->host) && !options.has(u"public-origin"_s))
        return command::wrongUsage(u"--public-origin is needed when listening on all addresses."_s,
                                   u"serve"_s);
    QString origins[2];
    for (const auto& [i, name] :
         {std::pair(0, u"public-origin"_s), std::pair(1, u"files-origin"_s)}) {
        if (!options.has(name))
            continue;
        const auto origin = parseOrigin(options.value(name));
        if (!origin)
            return command::wrongUsage(
                u"--%1 must be an http or https address, such as https://play.example."_s.arg(name),
                u"serve"_s);
        origins[i] = *origin;
    }

    // Before any thread: they inherit that these signals wait for StopSignals.
    StopSignals signals;
    Site site(options.value(u"data"_s));
    Passwords passwords;
    Accounts accounts(site.database(), passwords);
    Router router([&accounts](const QByteArray& token) { return accounts.byToken(token); });
    HttpServer server(router, nullptr);
    listen->port = server.bind(listen->host, listen->port);
    const QString publicOrigin = origins[0].isEmpty() ? originOf(*listen) : origins[0];
    Catalogue catalogue(site.database(), origins[1].isEmpty() ? publicOrigin : origins[1]);
    Appearance appearance(site.database(), site.store());
    account_api::addRoutes(router, accounts);
    catalogue_api::addRoutes(router, catalogue, site.store(), origins[1]);
    appearance_api::addRoutes(router, appearance, site.store());

    command::print(u"Listening on "_s + originOf(*listen));
    signals.onStop([&server] { server.stop(); });
    server.run();
    return command::Success;
}

} // namespace commands
