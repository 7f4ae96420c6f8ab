#include "backend/http/engine.h"

#include "backend/base/outcome.h"
#include "backend/http/connection.h"

#include <QScopeGuard>

#include <map>

namespace server {

namespace {

using Unsent = asio::detail::socket_option::integer<IPPROTO_TCP, TCP_NOTSENT_LOWAT>;

// Listens for one kind of connections, and watches them. It works on a strand of its own, and each
// client on one.
template <typename Stream>
class Listener final : public Engine
{
public:
    explicit Listener(const Options& options)
    try : m_options(options) {
        const auto found = tcp::resolver(m_context).resolve(
            options.host.toStdString(), std::to_string(options.port), tcp::resolver::passive);
        // Not SO_REUSEPORT, with which a second server would share the port in silence.
        m_acceptor = tcp::acceptor(m_strand, *found.begin(), true);
        // Who is accepted inherits them. The second keeps the kernel from hiding who reads slowly,
        // and from holding megabytes for who does not read.
        m_acceptor.set_option(tcp::no_delay(true));
        m_acceptor.set_option(Unsent(2 * blockBytes));
    } catch (const boost::system::system_error& fault) {
        throw Fault(u"cannot listen on %1:%2: %3"_s.arg(options.host)
                        .arg(options.port)
                        .arg(QString::fromStdString(fault.code().message())));
    }

    int port() const override { return m_acceptor.local_endpoint().port(); }
    void run(Application& application) override
    {
        // Without one of the two it would be deaf, or wait for ever: then it ends.
        constexpr auto rethrow = [](const std::exception_ptr& fault) {
            if (fault)
                std::rethrow_exception(fault);
        };
        asio::co_spawn(m_strand, accept(application), rethrow);
        asio::co_spawn(m_strand, watch(), rethrow);
        std::vector<std::thread> others;
        while (others.size() + 1 < m_options.threads)
            others.emplace_back([this] { m_context.run(); });
        m_context.run();
        for (std::thread& other : others)
            other.join();
    }
    void stop() override
    {
        asio::post(m_strand, [this] {
            m_end = Clock::now() + stopTime;
            m_acceptor.close();
            for (const auto& [network, client] : m_clients)
                client->post(&Client::finish);
        });
    }

private:
    using Client = Connection<Stream>;
    using Clients = std::multimap<QString, std::shared_ptr<Client>>; // by their networks
    static constexpr std::chrono::seconds stopTime{8};               // for what has begun
    static constexpr std::chrono::milliseconds turn{100};

    asio::awaitable<void> accept(Application& application)
    {
        asio::steady_timer pause(m_strand);
        for (bool isFailing = false; m_acceptor.is_open();) {
            tcp::socket socket(asio::make_strand(m_context));
            error_code error = asio::error::try_again;
            if (m_clients.size() < m_options.connections)
                error = std::get<0>(co_await m_acceptor.async_accept(socket, token));
            if (error && error != asio::error::try_again && !isFailing && m_acceptor.is_open())
                logging::error(u"cannot accept connections: "_s +
                               QString::fromStdString(error.message()));
            isFailing = bool(error);
            if (!error)
                admit(std::move(socket), application);
            // Full, or out of descriptors: newcomers wait in the kernel's queue.
            pause.expires_after(turn);
            if (error)
                co_await pause.async_wait(token);
        }
    }

    void admit(tcp::socket socket, Application& application)
    try {
        error_code error;
        const std::string peer = socket.remote_endpoint(error).address().to_string();
        const QString address = network_address::plain(QString::fromStdString(peer));
        const QString network = network_address::network(address);
        if (error || (!m_options.trustedProxies.contains(address) &&
                      m_clients.count(network) >= m_options.connectionsOfAddress))
            return;
        socket.native_non_blocking(true, error);
        const auto strand = socket.get_executor();
        std::shared_ptr<Client> client;
        if constexpr (Client::isSecure)
            client = std::make_shared<Client>(address, m_options, application, std::move(socket),
                                              *m_options.certificate->context());
        else
            client = std::make_shared<Client>(address, m_options, application, std::move(socket));
        const auto place = m_clients.emplace(network, std::move(client));
        auto undo = qScopeGuard([this, place] { m_clients.erase(place); });
        asio::co_spawn(strand, place->second->serve(),
                       asio::bind_executor(m_strand, [this, place](const std::exception_ptr&) {
                           m_clients.erase(place);
                       }));
        undo.dismiss();
    } catch (const std::bad_alloc&) {
        logging::error(u"out of memory while accepting a connection"_s);
    }

    asio::awaitable<void> watch()
    {
        asio::steady_timer timer(m_strand);
        while ((m_acceptor.is_open() || !m_clients.empty()) && Clock::now() < m_end) {
            timer.expires_after(turn);
            co_await timer.async_wait(token);
            for (const auto& [network, client] : m_clients) {
                if (client->isLate())
                    client->post(&Client::close);
            }
        }
        m_context.stop();
    }

    const Options m_options;
    asio::io_context m_context;
    asio::strand<asio::io_context::executor_type> m_strand{m_context.get_executor()};
    tcp::acceptor m_acceptor{m_strand};
    Clients m_clients;
    Clock::time_point m_end = Clock::time_point::max();
};

} // namespace

std::unique_ptr<Engine> Engine::make(const Options& options)
{
    if (!options.certificate)
        return std::make_unique<Listener<tcp::socket>>(options);
    return std::make_unique<Listener<asio::ssl::stream<tcp::socket>>>(options);
}

} // namespace server
