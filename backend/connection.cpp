#include "backend/connection.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr qsizetype headLimit = 16 * 1024;
constexpr qsizetype blockBytes = 64 * 1024;
// One client does not keep the loop from the others for longer than this takes.
constexpr qint64 turnBytes = 1024 * 1024;

} // namespace

Connection::Connection(int socket, QString address, TlsSession tls)
    : m_socket(socket), m_address(std::move(address)), m_tls(std::move(tls))
{
}

Connection::~Connection()
{
    if (m_file >= 0)
        ::close(m_file);
    ::close(m_socket);
}

qsizetype Connection::inputLimit() const
{
    return std::max<qsizetype>(headLimit, headEnd() + m_bodyNeeded);
}

Connection::Io Connection::receive()
{
    bool moved = false;
    std::array<char, blockBytes> block;
    while (m_input.size() < inputLimit()) {
        const auto room = std::min<qsizetype>(inputLimit() - m_input.size(), blockBytes);
        const qint64 got = m_tls ? SSL_read(m_tls.get(), block.data(), static_cast<int>(room))
                                 : ::recv(m_socket, block.data(), static_cast<size_t>(room), 0);
        if (const Io io = move(got, errno); io != Io::Moved)
            return io == Io::Waiting && moved ? Io::Moved : io;
        m_input.append(block.data(), got);
        moved = true;
    }
    return Io::Moved;
}

// What a read or write of the socket or the TLS session came to.
Connection::Io Connection::move(qint64 result, int failure)
{
    m_waitsForRead = m_waitsForWrite = false;
    if (result > 0)
        return Io::Moved;
    if (m_tls) {
        const int error = SSL_get_error(m_tls.get(), static_cast<int>(result));
        m_waitsForRead = error == SSL_ERROR_WANT_READ;
        m_waitsForWrite = error == SSL_ERROR_WANT_WRITE;
        return m_waitsForRead || m_waitsForWrite ? Io::Waiting : Io::Ended;
    }
    const bool later = result < 0 && (failure == EAGAIN || failure == EINTR);
    return later ? Io::Waiting : Io::Ended;
}

qint64 Connection::write(const char* data, qsizetype size)
{
    size = std::min(size, blockBytes);
    return m_tls ? SSL_write(m_tls.get(), data, static_cast<int>(size))
                 : ::send(m_socket, data, static_cast<size_t>(size), MSG_NOSIGNAL);
}

Connection::Io Connection::send()
{
    while (m_sent < m_output.size()) {
        const qint64 went = write(m_output.constData() + m_sent, m_output.size() - m_sent);
        if (const Io io = move(went, errno); io != Io::Moved)
            return io;
        m_sent += went;
    }
    for (qint64 turn = 0; m_fileLeft > 0 && turn < turnBytes; turn += blockBytes) {
        if (const Io io = sendFile(); io != Io::Moved)
            return io;
    }
    return m_fileLeft > 0 ? Io::Waiting : Io::Moved;
}

Connection::Io Connection::sendFile()
{
    qint64 went = 0;
    if (m_tls) {
        std::array<char, blockBytes> block;
        const auto wanted = static_cast<size_t>(std::min<qint64>(m_fileLeft, blockBytes));
        const ssize_t got = ::pread(m_file, block.data(), wanted, m_fileOffset);
        if (got <= 0)
            return Io::Ended;
        went = write(block.data(), got);
    } else {
        off_t offset = m_fileOffset;
        const auto wanted = static_cast<size_t>(std::min<qint64>(m_fileLeft, blockBytes));
        went = ::sendfile(m_socket, m_file, &offset, wanted);
    }
    const Io io = move(went, errno);
    if (io == Io::Moved) {
        m_fileOffset += went;
        m_fileLeft -= went;
    }
    return io;
}

Connection::Io Connection::drain()
{
    std::array<char, blockBytes> block;
    // Below TLS, too: nobody wants to know what it says.
    const ssize_t got = ::recv(m_socket, block.data(), block.size(), 0);
    return got > 0 ? Io::Moved : got < 0 && errno == EAGAIN ? Io::Waiting : Io::Ended;
}

void Connection::finishSending()
{
    if (m_tls)
        SSL_shutdown(m_tls.get());
    ::shutdown(m_socket, SHUT_WR);
}

qsizetype Connection::headEnd() const
{
    const qsizetype blank = m_input.indexOf("\r\n\r\n");
    return blank < 0 ? -1 : blank + 4;
}

bool Connection::isRequestReady() const
{
    const qsizetype end = headEnd();
    return end >= 0 && m_input.size() >= end + m_bodyNeeded;
}

bool Connection::isHeadTooLarge() const
{
    return m_input.size() >= headLimit && headEnd() < 0;
}

void Connection::consume(qsizetype bytes)
{
    m_input.remove(0, bytes);
    m_bodyNeeded = 0;
}

void Connection::setOutput(const QByteArray& bytes)
{
    m_output = bytes;
    m_sent = 0;
}

void Connection::setFile(int handle, qint64 offset, qint64 bytes)
{
    if (m_file >= 0)
        ::close(m_file);
    m_file = handle;
    m_fileOffset = offset;
    m_fileLeft = bytes;
}

quint32 Connection::events() const
{
    if (m_waitsForWrite)
        return EPOLLOUT;
    if (m_waitsForRead)
        return EPOLLIN;
    return state == State::Sending ? EPOLLOUT : EPOLLIN;
}
