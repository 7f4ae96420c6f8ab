#pragma once

#include "tests/fuzz/fuzz.h"

#include <boost/asio.hpp>

#include <QByteArray>

#include <algorithm>
#include <functional>

// Both directions of a connection, in memory: the input arrives in pieces whose sizes follow from a
// seed and then ends; the output is kept. One thread.
class EngineWire
{
public:
    using Context = boost::asio::io_context;
    using Error = boost::system::error_code;

    EngineWire(Context& inContext, QByteArray arriving, uint8_t seed)
        : context(inContext), input(std::move(arriving)), m_seed(seed)
    {
    }

    // The server's end, as Asio reads and writes it.
    class End
    {
    public:
        using executor_type = Context::executor_type;
        explicit End(EngineWire& wire) : m_wire(&wire) {}
        executor_type get_executor() const { return m_wire->context.get_executor(); }
        template <typename Buffers, typename Token>
        auto async_read_some(const Buffers& buffers, Token&& token)
        {
            return perform(token, [this, buffers] { return m_wire->read(buffers); });
        }
        template <typename Buffers, typename Token>
        auto async_write_some(const Buffers& buffers, Token&& token)
        {
            return perform(token, [this, buffers] { return m_wire->write(buffers); });
        }
        void shutdown(int /*what*/, Error& /*error*/) { m_wire->isShut = true; }
        template <typename Option>
        void set_option(const Option& /*option*/, Error& /*error*/)
        {
        }
        void close(Error& /*error*/) { m_wire->isClosed = true; }

    private:
        template <typename Token, typename Operation>
        auto perform(Token& token, Operation operation)
        {
            const auto start = [this, operation](auto handler) {
                const auto [error, count] = operation();
                boost::asio::post(get_executor(), [handler = std::move(handler), outcome = error,
                                                   moved = count]() mutable {
                    std::move(handler)(outcome, moved);
                });
            };
            return boost::asio::async_initiate<Token, void(Error, size_t)>(start, token);
        }

        EngineWire* m_wire;
    };

    // Calls that before the given read.
    void atRead(int number, std::function<void()> call)
    {
        m_callAt = number;
        m_call = std::move(call);
    }

    Context& context;
    const QByteArray input;
    qsizetype arrived = 0;
    QByteArray output;
    qsizetype outputLimit = -1; // then the client has gone
    bool isShut = false;        // nothing more is answered
    bool isClosed = false;
    // Asked before each read: how far it may go.
    std::function<qsizetype()> readLimit;

private:
    template <typename Buffers>
    std::pair<Error, size_t> read(const Buffers& buffers)
    {
        if (m_callAt-- == 0)
            boost::asio::post(context, m_call);
        fuzz::require(boost::asio::buffer_size(buffers) > 0);
        if (isClosed)
            return {boost::asio::error::operation_aborted, 0};
        if (!isShut)
            fuzz::require(arrived < readLimit());
        const auto left = static_cast<size_t>(input.size() - arrived);
        const auto piece = boost::asio::buffer(input.constData() + arrived, std::min(left, size()));
        const size_t count = boost::asio::buffer_copy(buffers, piece);
        arrived += static_cast<qsizetype>(count);
        return {count == 0 ? Error(boost::asio::error::eof) : Error(), count};
    }
    template <typename Buffers>
    std::pair<Error, size_t> write(const Buffers& buffers)
    {
        fuzz::require(!isShut);
        if (isClosed)
            return {boost::asio::error::operation_aborted, 0};
        // Larger ones than the input's, since answers are.
        QByteArray piece(static_cast<qsizetype>(40 * size()), Qt::Uninitialized);
        piece.resize(static_cast<qsizetype>(boost::asio::buffer_copy(
            boost::asio::buffer(piece.data(), static_cast<size_t>(piece.size())), buffers)));
        if (outputLimit >= 0 && output.size() + piece.size() > outputLimit)
            return {boost::asio::error::broken_pipe, 0};
        output += piece;
        return {Error(), static_cast<size_t>(piece.size())};
    }

    // Of the next piece: a few bytes, a packet, or all that fits.
    size_t size()
    {
        constexpr size_t sizes[] = {16'384, 3, 40, 1500};
        m_state = m_state * 1'664'525 + 1'013'904'223;
        return 1 + (m_state >> 8) % sizes[m_seed % 4];
    }

    const uint8_t m_seed;
    uint32_t m_state = m_seed;
    int m_callAt = -1;
    std::function<void()> m_call;
};
