#include "backend/accounts/login_guard.h"
#include "backend/accounts/passwords.h"
#include "backend/accounts/registration_guard.h"
#include "backend/api/account_api.h"
#include "backend/api/catalogue_api.h"
#include "backend/api/http_application.h"
#include "backend/api/look_api.h"
#include "backend/api/router.h"
#include "backend/api/status_api.h"
#include "backend/base/log.h"
#include "backend/catalogue/catalogue.h"
#include "backend/cli/command.h"
#include "backend/cli/commands.h"
#include "backend/cli/serve_options.h"
#include "backend/cli/signals.h"
#include "backend/data/data_directory.h"
#include "backend/data/health.h"
#include "backend/looks/appearance.h"
#include "backend/tls/certificate.h"
#include "backend/upkeep/janitor.h"
#include "backend/upkeep/sweep.h"

#include <malloc.h>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

// Everything that answers, over one data directory.
class Services
{
public:
    Services(Database& database, const Store& store, const ServeOptions& options)
        : m_accounts(database, m_passwords, options.accounts)
        , m_registration(m_accounts, options.registrationsOfAddress)
        , m_guard(m_accounts)
        , m_catalogue(database,
                      options.filesOrigin.isEmpty() ? options.publicOrigin : options.filesOrigin)
        , m_appearance(database, store, options.uploads)
        , m_health(database)
        , m_router([this](const QByteArray& token) { return m_accounts.byToken(token); })
    {
        account_api::addRoutes(m_router, m_accounts, m_registration, m_guard);
        catalogue_api::addRoutes(m_router, m_catalogue, store, options.filesOrigin);
        look_api::addRoutes(m_router, m_appearance, store);
        status_api::addRoutes(m_router, m_health);
    }
    const Router& router() const { return m_router; }

private:
    Passwords m_passwords;
    Accounts m_accounts;
    RegistrationGuard m_registration;
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

// What a large request filled goes back to the system at once. Left to itself, the allocator learns
// from such requests to keep as much as the largest took, for each thread.
void returnMemory()
{
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    // Less would hand back and ask again with every TLS handshake.
    mallopt(M_TRIM_THRESHOLD, 8 * 1024 * 1024);
}

// What browsers are told with every answer.
QList<server::Header> headersOfAll(bool isSecure)
{
    QList<server::Header> headers{
        {"X-Content-Type-Options", "nosniff"},
        {"Content-Security-Policy", "default-src 'none'; frame-ancestors 'none'"},
        {"Referrer-Policy", "no-referrer"}};
    if (isSecure)
        headers.emplaceBack("Strict-Transport-Security", "max-age=31536000");
    return headers;
}

// What stands in files and may be replaced while the server runs. What cannot be read stays as it
// is.
void reload(Certificate* certificate) noexcept
{
    try {
        logging::reopenAccessLog();
        if (certificate)
            certificate->reload();
    } catch (const std::exception& fault) {
        logging::error(fault);
    }
}

int serve(ServeOptions options)
{
    // Before any thread: they inherit that these signals wait for Signals.
    Signals signals;
    if (!options.accessLog.isEmpty())
        logging::openAccessLog(options.accessLog);
    const bool isSecure = !options.key.isEmpty();
    if (isSecure)
        options.network.certificate =
            std::make_shared<Certificate>(options.certificate, options.key);
    options.network.headers = headersOfAll(isSecure);
    const auto engine = server::Engine::make(options.network);
    raiseFileLimit(options.network.connections);
    returnMemory();
    const QString origin = options.localOrigin(engine->port());
    if (options.publicOrigin.isEmpty())
        options.publicOrigin = origin;

    DataDirectory data(options.data);
    // The sweep may take its time with the other one.
    Database database(data.database().location(), Patience::Client);
    const Services services(database, data.store(), options);
    HttpApplication application(services.router(), options.bodies);
    const Janitor janitor([&data] { sweep::run(data.database(), data.store()); });
    signals.listen([&engine] { engine->stop(); },
                   [certificate = options.network.certificate] { reload(certificate.get()); });
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
