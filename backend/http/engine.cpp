#include "backend/http/engine.h"

#include "backend/base/outcome.h"
#include "backend/http/connection.h"

#include <map>

namespace server {

namespace {

// TLS 1.2 and 1.3 with authenticated ciphers alone.
asio::ssl::context secureContext(const Options& options)
{
    asio::ssl::context made(asio::ssl::context::tls_server);
    SSL_CTX* handle = made.native_handle();
    SSL_CTX_set_min_proto_version(handle, TLS1_2_VERSION);
    SSL_CTX_set_options(handle, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_mode(handle, SSL_MODE_RELEASE_BUFFERS); // Who waits holds none.
    SSL_CTX_set_cipher_list(handle, "ECDHE+AESGCM:ECDHE+CHACHA20");
    QString what = u"certificate "_s + options.certificate;
    try {
        made.use_certificate_chain_file(options.certificate.toStdString());
        what = u"key "_s + options.key;
        made.use_private_key_file(options.key.toStdString(), asio::ssl::context::pem);
    } catch (const boost::system::system_error& fault) {
        throw Fault(u"cannot use the "_s + what + u": "_s + QString::fromUtf8(fault.what()));
    }
    return made;
}

using Unsent = asio::detail::socket_option::integer<IPPROTO_TCP, TCP_NOTSENT_LOWAT>;

// Listens for one kind of connections, and watches them.
template <typename Stream>
class Listener final : public Engine
{
public:
    explicit Listener(const Options& options)
    try : m_options(options) {
        if constexpr (Client::isSecure)
            m_secure = std::make_unique<asio::ssl::context>(secureContext(options));
        const auto found = tcp::resolver(m_context).resolve(
            options.host.toStdString(), std::to_string(options.port), tcp::resolver::passive);
        // Not SO_REUSEPORT, with which a second server would share the port in silence.
        m_acceptor = tcp::acceptor(m_context, *found.begin(), true);
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
        asio::co_spawn(m_context, accept(application), asio::detached);
        asio::co_spawn(m_context, watch(), asio::detached);
        m_context.run();
    }
    void stop() override
    {
        asio::post(m_context, [this] {
            m_end = Clock::now() + stopTime;
            m_acceptor.close();
            for (const auto& [network, client] : m_clients)
                client->finish();
        });
    }

private:
    using Client = Connection<Stream>;
    static constexpr std::chrono::seconds stopTime{8}; // for what has begun
    static constexpr std::chrono::milliseconds turn{100};

    asio::awaitable<void> accept(Application& application)
    {
        asio::steady_timer pause(m_context);
        for (bool isFailing = false; m_acceptor.is_open();) {
            tcp::socket socket(m_context);
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
        std::unique_ptr<Client> client;
        if constexpr (Client::isSecure)
            client = std::make_unique<Client>(address, m_options, application, std::move(socket),
                                              *m_secure);
        else
            client = std::make_unique<Client>(address, m_options, application, std::move(socket));
        const auto place = m_clients.emplace(network, std::move(client));
        const auto leave = [this, place](const std::exception_ptr&) { m_clients.erase(place); };
        asio::co_spawn(m_context, place->second->serve(), leave);
    } catch (const std::bad_alloc&) {
        logging::error(u"out of memory while accepting a connection"_s);
    }

    asio::awaitable<void> watch()
    {
        asio::steady_timer timer(m_context);
        while ((m_acceptor.is_open() || !m_clients.empty()) && Clock::now() < m_end) {
            timer.expires_after(turn);
            co_await timer.async_wait(token);
            for (const auto& [network, client] : m_clients) {
                if (client->isLate())
                    client->close();
            }
        }
        m_context.stop();
    }

    const Options m_options;
    std::unique_ptr<asio::ssl::context> m_secure; // none: plain HTTP
    asio::io_context m_context{1};
    tcp::acceptor m_acceptor{m_context};
    std::multimap<QString, std::unique_ptr<Client>> m_clients; // by their networks
    Clock::time_point m_end = Clock::time_point::max();
};

} // namespace

std::unique_ptr<Engine> Engine::make(const Options& options)
{
    if (options.key.isEmpty())
        return std::make_unique<Listener<tcp::socket>>(options);
    return std::make_unique<Listener<asio::ssl::stream<tcp::socket>>>(options);
}

} // namespace server
