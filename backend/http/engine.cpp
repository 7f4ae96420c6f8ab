#include "backend/http/engine.h"

#include "backend/base/log.h"
#include "backend/base/network_address.h"
#include "backend/base/outcome.h"
#include "backend/http/head.h"

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/http/status.hpp>

#include <QDateTime>
#include <QHash>
#include <QLocale>

#include <set>
#include <sys/sendfile.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace http {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using Clock = std::chrono::steady_clock;

constexpr auto token = asio::as_tuple(asio::use_awaitable);
constexpr size_t blockBytes = 64 * 1024;
// One client does not keep the others waiting for longer than this takes.
constexpr size_t turnBytes = 1024 * 1024;
using Unsent = asio::detail::socket_option::integer<IPPROTO_TCP, TCP_NOTSENT_LOWAT>;

QByteArray reasonOf(int status)
{
    const auto known = boost::beast::http::int_to_status(static_cast<unsigned>(status));
    return QByteArray::fromStdString(std::string(obsolete_reason(known)));
}

// One client, from its first byte to its last answer. Nothing that needs a destructor is made
// within a co_await: g++ 12 would destroy it twice.
class Connection
{
public:
    Connection(tcp::socket socket, QString address, asio::ssl::context* secure,
               const Options& options, Application& application)
        : m_options(options)
        , m_application(application)
        , m_address(std::move(address))
        , m_socket(std::move(socket))
    {
        error_code ignored;
        m_socket.native_non_blocking(true, ignored);
        if (secure)
            m_tls.emplace(m_socket, *secure);
    }

    bool isLate() const { return m_deadline < Clock::now(); }
    void close()
    {
        error_code ignored;
        // What is left of an answer would stay in the kernel for as long as it is not read.
        if (m_isAnswering)
            m_socket.set_option(tcp::socket::linger(true, 0), ignored);
        m_socket.close(ignored);
    }
    // The answer under way is the last one.
    void finish()
    {
        m_finishing = true;
        if (m_isIdle)
            close();
    }

    asio::awaitable<void> serve()
    {
        constexpr auto server = asio::ssl::stream_base::server;
        if (m_tls && std::get<0>(co_await m_tls->async_handshake(server, token)))
            co_return;
        while (m_keeps) {
            m_request = std::make_shared<Request>();
            m_request->address = m_address;
            if (!co_await awaitHead())
                co_return;
            try {
                if (!co_await exchange() || !co_await send())
                    co_return;
                continue;
            } catch (const std::bad_alloc&) {
                logging::error(u"out of memory while reading a request"_s);
                m_reply = failure(503);
            } catch (const std::exception& fault) {
                logging::error(u"a request failed: "_s + QString::fromUtf8(fault.what()));
                m_reply = failure(500);
            }
            m_keeps = false;
            if (m_isAnswering || !co_await send())
                co_return;
        }
        co_await drain();
    }

private:
    void allow(std::chrono::milliseconds time)
    {
        m_deadline = Clock::now() + time;
        m_moved = 0;
    }
    // Who moves enough may go on.
    void moved(size_t bytes, std::chrono::milliseconds time)
    {
        m_moved += bytes;
        if (m_moved >= blockBytes)
            allow(time);
    }

    // False when none will come. What is wrong with it already is left to exchange().
    asio::awaitable<bool> awaitHead()
    {
        if (!m_input.empty())
            allow(m_options.head);
        while (m_input.empty() || headBytes(m_input) == 0) {
            m_isIdle = m_input.empty();
            if (m_isIdle && m_finishing)
                co_return false;
            const size_t held = m_input.size();
            m_input.resize(held + 4096);
            const size_t got = co_await read(m_input.data() + held, 4096);
            m_input.resize(held + got);
            m_isIdle = false;
            if (got == 0)
                co_return false;
            if (held == 0)
                allow(m_options.head);
        }
        co_return true;
    }

    // From the head to the reply; false when the connection has ended.
    asio::awaitable<bool> exchange()
    {
        Head head;
        const int fault = parseHead(m_input, *m_request, head);
        m_keeps = head.keepsAlive && fault == 0;
        if (fault != 0)
            m_reply = failure(fault);
        if (fault != 0)
            co_return true;
        m_input.erase(0, head.bytes);
        if (m_options.trustedProxies.contains(m_address))
            m_request->address =
                network_address::lastOf(m_request->field("X-Forwarded-For"), m_address);
        const auto body = static_cast<size_t>(m_request->bodyBytes);
        if (co_await ask(&Application::judge)) {
            // A body that is turned away is not waited for.
            m_keeps = m_keeps && m_input.size() >= body;
            m_input.erase(0, body);
            co_return true;
        }
        constexpr std::string_view leave = "HTTP/1.1 100 Continue\r\n\r\n";
        if (head.expectsLeave && m_input.size() < body &&
            !co_await write(leave.data(), leave.size()))
            co_return false;
        if (!co_await readBody())
            co_return false;
        if (!co_await ask(&Application::answer))
            m_reply = failure(500);
        co_return true;
    }

    // Whether there is a reply. Whoever takes too long is not waited for.
    asio::awaitable<bool> ask(decltype(&Application::judge) question)
    {
        struct Wait : asio::steady_timer
        {
            using asio::steady_timer::steady_timer;
            bool isOver = false;
            std::optional<Reply> reply;
        };
        const auto wait = std::make_shared<Wait>(m_socket.get_executor());
        const auto answer = std::make_shared<Answer>();
        answer->give = [wait](std::optional<Reply> reply) {
            asio::post(wait->get_executor(), [wait, reply = std::move(reply)]() mutable {
                wait->isOver = true;
                wait->reply = std::move(reply);
                wait->cancel();
            });
        };
        m_deadline = Clock::time_point::max();
        wait->expires_after(m_options.application);
        (m_application.*question)(m_request, answer);
        co_await wait->async_wait(token);
        answer->abandoned = !wait->isOver;
        if (answer->abandoned)
            logging::error(u"no answer in time: "_s + QString::fromUtf8(m_request->path));
        if (answer->abandoned)
            wait->reply = failure(503);
        if (wait->reply)
            m_reply = std::move(*wait->reply);
        co_return wait->reply.has_value();
    }

    asio::awaitable<bool> readBody()
    {
        QByteArray& body = m_request->body;
        body.resize(m_request->bodyBytes);
        qsizetype have = std::min(body.size(), static_cast<qsizetype>(m_input.size()));
        std::copy_n(m_input.data(), have, body.data());
        m_input.erase(0, static_cast<size_t>(have));
        allow(m_options.body);
        while (have < body.size()) {
            const auto room = static_cast<size_t>(body.size() - have);
            const size_t got = co_await read(body.data() + have, std::min(room, blockBytes));
            if (got == 0)
                co_return false;
            have += static_cast<qsizetype>(got);
            moved(got, m_options.body);
        }
        co_return true;
    }

    asio::awaitable<bool> send()
    {
        m_keeps = m_keeps && !m_finishing;
        const bool isBare = m_request->method == "HEAD" || m_reply.status == 304;
        const QByteArray bytes = headOf(m_reply) + (isBare ? QByteArray() : m_reply.body);
        const qint64 fileBytes = isBare ? 0 : m_reply.fileBytes;
        logging::request({m_request->address, m_request->method, m_request->path, m_reply.status,
                          bytes.size() + fileBytes, m_request->timer.nsecsElapsed() / 1000});
        m_request.reset();
        const Reply reply = std::exchange(m_reply, {});
        m_isAnswering = true;
        allow(m_options.transfer);
        const bool isSent = co_await write(bytes.constData(), static_cast<size_t>(bytes.size())) &&
                            co_await sendFile(reply, reply.offset + fileBytes);
        m_isAnswering = false;
        allow(m_options.idle);
        if (m_input.empty())
            m_input.shrink_to_fit();
        co_return isSent;
    }

    // From the reply's offset to that end.
    asio::awaitable<bool> sendFile(const Reply& reply, off_t end)
    {
        std::string block(m_tls && reply.offset < end ? blockBytes / 2 : 0, '\0');
        for (off_t at = reply.offset; at < end;) {
            const auto left = static_cast<size_t>(end - at);
            const int file = reply.file->handle();
            const ssize_t went =
                m_tls ? ::pread(file, block.data(), std::min(left, block.size()), at)
                      : ::sendfile(m_socket.native_handle(), file, &at, std::min(left, turnBytes));
            // A file may have become shorter.
            if (went == 0 || (went < 0 && errno != EAGAIN))
                co_return false;
            const auto count = static_cast<size_t>(std::max<ssize_t>(went, 0));
            if (m_tls && !co_await write(block.data(), count))
                co_return false;
            if (m_tls)
                at += went;
            else if (std::get<0>(co_await m_socket.async_wait(tcp::socket::wait_write, token)))
                co_return false;
            moved(m_tls ? 0 : count, m_options.transfer);
        }
        co_return true;
    }

    QByteArray headOf(const Reply& reply) const
    {
        QByteArray head =
            "HTTP/1.1 " + QByteArray::number(reply.status) + ' ' + reasonOf(reply.status);
        const auto add = [&head](const QByteArray& name, const QByteArray& value) {
            head += "\r\n" + name + ": " + value;
        };
        add("Date",
            QLocale::c()
                .toString(QDateTime::currentDateTimeUtc(), u"ddd, dd MMM yyyy hh:mm:ss 'GMT'"_s)
                .toLatin1());
        for (const auto& [name, value] : m_options.headers + reply.headers)
            add(name, value);
        if (!reply.contentType.isEmpty())
            add("Content-Type", reply.contentType);
        if (reply.status != 304)
            add("Content-Length", QByteArray::number(reply.body.size() + reply.fileBytes));
        add("Connection", m_keeps ? "keep-alive" : "close");
        return head + "\r\n\r\n";
    }

    // So that the last answer is not lost to a reset.
    asio::awaitable<void> drain()
    {
        allow(m_options.drain);
        if (m_tls)
            co_await m_tls->async_shutdown(token);
        error_code error;
        m_socket.shutdown(tcp::socket::shutdown_send, error);
        m_input.resize(4096);
        const auto buffer = asio::buffer(m_input);
        while (!error)
            error = std::get<0>(co_await m_socket.async_read_some(buffer, token));
    }

    // 0 when the connection has ended.
    asio::awaitable<size_t> read(char* data, size_t size)
    {
        const auto buffer = asio::buffer(data, size);
        const auto [error, count] = m_tls ? co_await m_tls->async_read_some(buffer, token)
                                          : co_await m_socket.async_read_some(buffer, token);
        co_return error ? 0 : count;
    }

    asio::awaitable<bool> write(const char* data, size_t size)
    {
        while (size > 0) {
            const auto buffer = asio::buffer(data, size);
            const auto [error, count] = m_tls ? co_await m_tls->async_write_some(buffer, token)
                                              : co_await m_socket.async_write_some(buffer, token);
            if (error)
                co_return false;
            moved(count, m_options.transfer);
            data += count;
            size -= count;
        }
        co_return true;
    }

    const Options& m_options;
    Application& m_application;
    const QString m_address;
    tcp::socket m_socket;
    std::optional<asio::ssl::stream<tcp::socket&>> m_tls;
    std::string m_input;
    RequestPtr m_request;
    Reply m_reply;
    Clock::time_point m_deadline = Clock::now() + m_options.head;
    size_t m_moved = 0; // since the deadline was set
    bool m_isIdle = false;
    bool m_isAnswering = false;
    bool m_keeps = true;
    bool m_finishing = false;
};

std::unique_ptr<asio::ssl::context> secureContext(const Options& options)
{
    auto context = std::make_unique<asio::ssl::context>(asio::ssl::context::tls_server);
    SSL_CTX* handle = context->native_handle();
    SSL_CTX_set_min_proto_version(handle, TLS1_2_VERSION);
    SSL_CTX_set_options(handle, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_mode(handle, SSL_MODE_RELEASE_BUFFERS); // Who waits holds none.
    SSL_CTX_set_cipher_list(handle, "ECDHE+AESGCM:ECDHE+CHACHA20");
    QString what = u"certificate "_s + options.certificate;
    try {
        context->use_certificate_chain_file(options.certificate.toStdString());
        what = u"key "_s + options.key;
        context->use_private_key_file(options.key.toStdString(), asio::ssl::context::pem);
    } catch (const boost::system::system_error& fault) {
        throw Fault(u"cannot use the "_s + what + u": "_s + QString::fromUtf8(fault.what()));
    }
    return context;
}

class Listener final : public Engine
{
public:
    explicit Listener(const Options& options)
    try : m_options(options) {
        if (!options.key.isEmpty())
            m_secure = secureContext(options);
        const std::string service = std::to_string(options.port);
        const auto found = tcp::resolver(m_context).resolve(options.host.toStdString(), service,
                                                            tcp::resolver::passive);
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
        asio::co_spawn(m_context, dropLate(), asio::detached);
        m_context.run();
    }
    void stop() override
    {
        asio::post(m_context, [this] {
            m_end = Clock::now() + m_options.stop;
            m_acceptor.close();
            for (const auto& connection : m_connections)
                connection->finish();
        });
    }

private:
    asio::awaitable<void> accept(Application& application)
    {
        asio::steady_timer pause(m_context);
        for (bool isFailing = false; m_acceptor.is_open();) {
            error_code error = asio::error::try_again;
            if (m_connections.size() < m_options.connections) {
                tcp::socket socket(m_context);
                error = std::get<0>(co_await m_acceptor.async_accept(socket, token));
                if (!error)
                    admit(std::move(socket), application);
                else if (!isFailing && m_acceptor.is_open())
                    logging::error(u"cannot accept connections: "_s +
                                   QString::fromStdString(error.message()));
                isFailing = bool(error);
            }
            // Full, or out of descriptors: newcomers wait in the kernel's queue.
            pause.expires_after(100ms);
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
        if (error || (m_ofNetwork.value(network) >= m_options.connectionsOfAddress &&
                      !m_options.trustedProxies.contains(address)))
            return;
        const auto connection = std::make_shared<Connection>(
            std::move(socket), address, m_secure.get(), m_options, application);
        const auto forget = [this, connection, network](const std::exception_ptr&) {
            m_connections.erase(connection);
            if (--m_ofNetwork[network] <= 0)
                m_ofNetwork.remove(network);
        };
        m_connections.insert(connection);
        ++m_ofNetwork[network];
        asio::co_spawn(m_context, connection->serve(), forget);
    } catch (const std::bad_alloc&) {
        logging::error(u"out of memory while accepting a connection"_s);
    }

    asio::awaitable<void> dropLate()
    {
        asio::steady_timer timer(m_context);
        while ((m_acceptor.is_open() || !m_connections.empty()) && Clock::now() < m_end) {
            timer.expires_after(100ms);
            co_await timer.async_wait(token);
            for (const auto& connection : m_connections) {
                if (connection->isLate())
                    connection->close();
            }
        }
        m_context.stop();
    }

    const Options m_options;
    std::unique_ptr<asio::ssl::context> m_secure;
    asio::io_context m_context{1};
    tcp::acceptor m_acceptor{m_context};
    std::set<std::shared_ptr<Connection>> m_connections;
    QHash<QString, int> m_ofNetwork;
    Clock::time_point m_end = Clock::time_point::max();
};

} // namespace

std::unique_ptr<Engine> Engine::make(const Options& options)
{
    return std::make_unique<Listener>(options);
}

Reply failure(int status)
{
    const bool isBusy = status == 503;
    const QByteArray text = isBusy          ? "The server is busy. Try again in a moment."
                            : status == 500 ? "The server had a problem. Try again later."
                                            : reasonOf(status);
    Reply reply{.status = status, .contentType = "application/json"};
    reply.body = R"({"error":")" + text + R"("})";
    reply.headers.emplaceBack("Cache-Control", "no-store");
    if (isBusy)
        reply.headers.emplaceBack("Retry-After", "1");
    return reply;
}

} // namespace http
