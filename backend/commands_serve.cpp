#include "backend/account_api.h"
#include "backend/appearance.h"
#include "backend/appearance_api.h"
#include "backend/catalogue.h"
#include "backend/catalogue_api.h"
#include "backend/command.h"
#include "backend/commands.h"
#include "backend/health.h"
#include "backend/http_application.h"
#include "backend/janitor.h"
#include "backend/log.h"
#include "backend/login_guard.h"
#include "backend/passwords.h"
#include "backend/router.h"
#include "backend/serve_options.h"
#include "backend/site.h"
#include "backend/status_api.h"
#include "backend/stop_signals.h"

#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

// Everything that answers, over one site.
class Services
{
public:
    Services(Site& site, const QString& fileOrigin, const QString& filesOrigin)
        : m_accounts(site.database(), m_passwords)
        , m_guard(m_accounts)
        , m_catalogue(site.database(), fileOrigin)
        , m_appearance(site.database(), site.store())
        , m_health(site.database())
        , m_router([this](const QByteArray& token) { return m_accounts.byToken(token); })
    {
        account_api::addRoutes(m_router, m_accounts, m_guard);
        catalogue_api::addRoutes(m_router, m_catalogue, site.store(), filesOrigin);
        appearance_api::addRoutes(m_router, m_appearance, site.store());
        status_api::addRoutes(m_router, m_health);
    }
    const Router& router() const { return m_router; }

private:
    Passwords m_passwords;
    Accounts m_accounts;
    LoginGuard m_guard;
    Catalogue m_catalogue;
    Appearance m_appearance;
    Health m_health;
    Router m_router;
};

// Every connection is a file, and some send one; the usual soft limit is for desktop programs.
void raiseFileLimit(size_t connections)
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    const rlim_t wanted = 2 * connections + 100;
    limit.rlim_cur = std::min(limit.rlim_max, std::max(limit.rlim_cur, wanted));
    setrlimit(RLIMIT_NOFILE, &limit);
}

// What browsers are told with every answer.
QList<http::Header> headersOfAll(bool isSecure)
{
    QList<http::Header> headers{
        {"X-Content-Type-Options", "nosniff"},
        {"Content-Security-Policy", "default-src 'none'; frame-ancestors 'none'"},
        {"Referrer-Policy", "no-referrer"}};
    if (isSecure)
        headers.emplaceBack("Strict-Transport-Security", "max-age=31536000");
    return headers;
}

int serve(ServeOptions options)
{
    // Before any thread: they inherit that these signals wait for StopSignals.
    StopSignals signals;
    if (!options.accessLog.isEmpty())
        logging::openAccessLog(options.accessLog);
    options.network.headers = headersOfAll(!options.network.key.isEmpty());
    const auto engine = http::Engine::make(options.network);
    raiseFileLimit(options.network.connections);
    const QString origin = options.localOrigin(engine->port());
    if (options.publicOrigin.isEmpty())
        options.publicOrigin = origin;

    Site site(options.site);
    const Services services(
        site, options.filesOrigin.isEmpty() ? options.publicOrigin : options.filesOrigin,
        options.filesOrigin);
    HttpApplication application(services.router(), options.bodies);
    const Janitor janitor(site.database(), site.store());
    signals.onStop([&engine] { engine->stop(); });
    command::print(u"Listening on "_s + origin);
    engine->run(application);
    return command::Success;
}

} // namespace

namespace commands {

int serve(const QStringList& words)
{
    const auto options = ServeOptions::parse(words);
    if (const int* over = std::get_if<int>(&options))
        return *over;
    return ::serve(std::get<ServeOptions>(options));
}

} // namespace commands
