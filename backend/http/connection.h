#pragma once

#include "backend/base/log.h"
#include "backend/base/network_address.h"
#include "backend/http/engine.h"
#include "backend/message/head.h"

#include <boost/asio.hpp>
#include <boost/asio/experimental/concurrent_channel.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core/stream_traits.hpp>

#include <sys/sendfile.h>

namespace server {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;

constexpr auto token = asio::as_tuple(asio::use_awaitable);
constexpr std::chrono::seconds headTime{10}; // for all of it, or the TLS handshake
constexpr std::chrono::seconds idleTime{15}; // between two requests
constexpr std::chrono::seconds drainTime{3}; // after the last answer
constexpr size_t blockBytes = 64 * 1024;
// One client does not keep the others waiting for longer than this takes.
constexpr size_t turnBytes = 1024 * 1024;

// One client, from its first byte to its last answer, on the engine's thread, over a socket, TLS or
// whatever else Asio reads and writes. It only sets itself deadlines: the engine watches them, and
// keeps it until serve() ends. Nothing that needs a destructor is made within a co_await: g++ 12
// would destroy it twice.
template <typename Stream>
class Connection : public std::enable_shared_from_this<Connection<Stream>>
{
public:
    static constexpr bool isPlain = std::is_same_v<Stream, tcp::socket>;
    static constexpr bool isSecure = requires(Stream stream) { stream.async_shutdown(token); };

    template <typename... Arguments>
    Connection(QString address, const Options& options, Application& application,
               Arguments&&... arguments)
        : m_address(std::move(address))
        , m_options(options)
        , m_application(application)
        , m_stream(std::forward<Arguments>(arguments)...)
    {
    }

    bool isLate() const { return m_deadline.load() < Clock::now(); }
    void post(void (Connection::*what)())
    {
        asio::post(m_stream.get_executor(),
                   [me = this->shared_from_this(), what] { (*me.*what)(); });
    }
    void close()
    {
        error_code ignored;
        // What is left of an answer would stay in the kernel for as long as it is not read.
        if (m_isAnswering)
            socket().set_option(tcp::socket::linger(true, 0), ignored);
        socket().close(ignored);
    }
    // The answer under way is the last one.
    void finish()
    {
        m_keeps = false;
        if (m_isIdle)
            close();
    }

    asio::awaitable<void> serve()
    {
        allow(headTime);
        if constexpr (isSecure) {
            constexpr auto server = asio::ssl::stream_base::server;
            if (std::get<0>(co_await m_stream.async_handshake(server, token)))
                co_return;
        }
        while (m_keeps) {
            try {
                if (!co_await receive() || !co_await send())
                    co_return;
                continue;
            } catch (const std::exception& fault) {
                logging::error(u"a request failed: "_s + QString::fromUtf8(fault.what()));
                m_reply = failure(dynamic_cast<const std::bad_alloc*>(&fault) ? 503 : 500);
            }
            m_keeps = false;
            if (m_isAnswering || !co_await send())
                co_return;
        }
        // So that the last answer is not lost to a reset.
        allow(drainTime);
        if constexpr (isSecure)
            co_await m_stream.async_shutdown(token);
        error_code error;
        socket().shutdown(tcp::socket::shutdown_send, error);
        m_input.resize(4096);
        while (!error)
            error = std::get<0>(co_await socket().async_read_some(asio::buffer(m_input), token));
    }

private:
    using Replies = asio::experimental::concurrent_channel<void(error_code, std::optional<Reply>)>;

    auto& socket() { return boost::beast::get_lowest_layer(m_stream); }
    void allow(std::chrono::milliseconds time) { m_deadline = Clock::now() + time; }

    // From the first byte to the reply; false when the connection has ended.
    asio::awaitable<bool> receive()
    {
        m_request = std::make_shared<Request>();
        m_request->address = m_address;
        if (!m_input.empty())
            allow(headTime);
        std::optional<int> fault = takeHead(m_input, *m_request);
        for (; !fault; fault = takeHead(m_input, *m_request)) {
            const size_t held = m_input.size();
            m_isIdle = held == 0;
            if (m_isIdle && !m_keeps)
                co_return false;
            if (std::get<0>(co_await asio::async_read(m_stream, asio::dynamic_buffer(m_input),
                                                      asio::transfer_at_least(1), token)))
                co_return false;
            m_isIdle = false;
            if (held == 0)
                allow(headTime);
        }
        m_keeps = m_keeps && *fault == 0 && m_request->keepsAlive;
        if (*fault != 0) {
            m_reply = failure(*fault);
            co_return true;
        }
        if (m_options.trustedProxies.contains(m_address))
            m_request->address =
                network_address::lastOf(m_request->field("X-Forwarded-For"), m_address);
        if (co_await ask(&Application::judge)) {
            // A body that is turned away is not waited for.
            const auto body = static_cast<size_t>(m_request->bodyBytes);
            m_keeps = m_keeps && m_input.size() >= body;
            m_input.erase(0, body);
            co_return true;
        }
        if (!co_await readBody())
            co_return false;
        if (!co_await ask(&Application::answer))
            m_reply = failure(500);
        co_return true;
    }

    // Whether there is a reply. Whoever takes too long is not waited for.
    asio::awaitable<bool> ask(decltype(&Application::judge) question)
    {
        const auto replies = std::make_shared<Replies>(m_stream.get_executor(), 1);
        const auto answer = std::make_shared<Answer>();
        answer->give = [replies](std::optional<Reply> reply) {
            replies->try_send(error_code(), std::move(reply));
        };
        asio::steady_timer patience(m_stream.get_executor(), m_options.application);
        patience.async_wait([answer, request = m_request](error_code error) {
            if (error)
                return;
            logging::error(u"no answer in time: "_s + QString::fromUtf8(request->path));
            answer->abandoned = true;
            answer->give(failure(503));
        });
        m_deadline = Clock::time_point::max();
        (m_application.*question)(m_request, answer);
        auto [error, reply] = co_await replies->async_receive(token);
        if (reply)
            m_reply = std::move(*reply);
        co_return reply.has_value();
    }

    asio::awaitable<bool> readBody()
    {
        QByteArray& body = m_request->body;
        body.resize(m_request->bodyBytes);
        asio::mutable_buffer rest(body.data(), static_cast<size_t>(body.size()));
        rest += asio::buffer_copy(rest, asio::buffer(m_input));
        m_input.erase(0, static_cast<size_t>(body.size()) - rest.size());
        constexpr std::string_view leave = "HTTP/1.1 100 Continue\r\n\r\n";
        allow(m_options.transfer);
        if (m_request->expectsLeave && rest.size() > 0 &&
            std::get<0>(co_await asio::async_write(m_stream, asio::buffer(leave), token)))
            co_return false;
        for (; rest.size() > 0; rest += blockBytes) {
            allow(m_options.body);
            const auto block = asio::buffer(rest, blockBytes);
            if (std::get<0>(co_await asio::async_read(m_stream, block, token)))
                co_return false;
        }
        co_return true;
    }

    // False when the connection has ended.
    asio::awaitable<bool> send()
    {
        const bool isBare = m_request->method == "HEAD" || m_reply.status == 304;
        const QByteArray bytes =
            headOf(m_reply, m_options.headers, m_keeps) + (isBare ? QByteArray() : m_reply.body);
        const qint64 fileBytes = isBare ? 0 : m_reply.fileBytes;
        logging::request({m_request->address, m_request->method, m_request->path, m_reply.status,
                          bytes.size() + fileBytes, m_request->timer.nsecsElapsed() / 1000});
        m_request.reset();
        const Reply reply = std::exchange(m_reply, {});
        m_isAnswering = true;
        asio::const_buffer rest(bytes.constData(), static_cast<size_t>(bytes.size()));
        for (; rest.size() > 0; rest += blockBytes) {
            allow(m_options.transfer);
            const auto block = asio::buffer(rest, blockBytes);
            if (std::get<0>(co_await asio::async_write(m_stream, block, token)))
                co_return false;
        }
        if (!co_await sendFile(reply, reply.offset + fileBytes))
            co_return false;
        m_isAnswering = false;
        allow(idleTime);
        if (m_input.empty())
            m_input.shrink_to_fit();
        co_return true;
    }

    // From the reply's offset to that end.
    asio::awaitable<bool> sendFile(const Reply& reply, off_t end)
    {
        std::string block(isPlain || reply.offset == end ? 0 : blockBytes / 2, '\0');
        allow(m_options.transfer);
        for (off_t at = reply.offset, mark = at; at < end;) {
            const auto left = static_cast<size_t>(end - at);
            ssize_t went = 0;
            if constexpr (isPlain) {
                if (std::get<0>(co_await m_stream.async_wait(tcp::socket::wait_write, token)))
                    co_return false;
                off_t from = at;
                went = ::sendfile(m_stream.native_handle(), reply.file->handle(), &from,
                                  std::min(left, turnBytes));
            } else {
                went =
                    ::pread(reply.file->handle(), block.data(), std::min(left, block.size()), at);
                const auto read =
                    asio::buffer(block, static_cast<size_t>(std::max<ssize_t>(went, 0)));
                if (std::get<0>(co_await asio::async_write(m_stream, read, token)))
                    co_return false;
            }
            // A file may have become shorter.
            if (went == 0 || (went < 0 && errno != EAGAIN))
                co_return false;
            at += std::max<ssize_t>(went, 0);
            if (at - mark < static_cast<off_t>(blockBytes))
                continue;
            allow(m_options.transfer);
            mark = at;
        }
        co_return true;
    }

    const QString m_address;
    const Options& m_options;
    Application& m_application;
    Stream m_stream;
    std::string m_input;
    RequestPtr m_request;
    Reply m_reply;
    std::atomic<Clock::time_point> m_deadline = Clock::time_point::max();
    bool m_isIdle = false;
    bool m_isAnswering = false;
    bool m_keeps = true;
};

} // namespace server
