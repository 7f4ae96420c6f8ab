#include "backend/account_api.h"
#include "backend/appearance.h"
#include "backend/appearance_api.h"
#include "backend/catalogue.h"
#include "backend/catalogue_api.h"
#include "backend/command.h"
#include "backend/commands.h"
#include "backend/http_server.h"
#include "backend/janitor.h"
#include "backend/listen_socket.h"
#include "backend/log.h"
#include "backend/login_guard.h"
#include "backend/passwords.h"
#include "backend/router.h"
#include "backend/serve_options.h"
#include "backend/site.h"
#include "backend/status_api.h"
#include "backend/stop_signals.h"

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
        , m_router([this](const QByteArray& token) { return m_accounts.byToken(token); })
    {
        account_api::addRoutes(m_router, m_accounts, m_guard);
        catalogue_api::addRoutes(m_router, m_catalogue, site.store(), filesOrigin);
        appearance_api::addRoutes(m_router, m_appearance, site.store());
        status_api::addRoutes(m_router, site.database());
    }
    const Router& router() const { return m_router; }

private:
    Passwords m_passwords;
    Accounts m_accounts;
    LoginGuard m_guard;
    Catalogue m_catalogue;
    Appearance m_appearance;
    Router m_router;
};

int serve(ServeOptions options)
{
    // Before any thread: they inherit that these signals wait for StopSignals.
    StopSignals signals;
    if (!options.accessLog.isEmpty())
        logging::openAccessLog(options.accessLog);
    std::unique_ptr<Tls> tls;
    if (!options.tlsKey.isEmpty())
        tls = std::make_unique<Tls>(options.tlsCertificate, options.tlsKey);
    ListenSocket listener(options.host, options.port);
    options.port = listener.port();
    if (options.publicOrigin.isEmpty())
        options.publicOrigin = options.localOrigin();

    Site site(options.site);
    const Services services(
        site, options.filesOrigin.isEmpty() ? options.publicOrigin : options.filesOrigin,
        options.filesOrigin);
    HttpServer server(services.router(), listener, {tls.get(), options.trustedProxies});
    const Janitor janitor(site.database(), site.store());
    signals.onStop([&server] { server.stop(); });
    command::print(u"Listening on "_s + options.localOrigin());
    server.run();
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
