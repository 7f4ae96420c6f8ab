#include "backend/exchange.h"

#include "backend/connection.h"

#include <algorithm>
#include <cstring>

ssize_t Exchange::read(char* data, size_t size)
{
    const qsizetype left = std::max<qsizetype>(m_connection.headEnd() - m_read, 0);
    const auto count = std::min(static_cast<qsizetype>(size), left);
    std::memcpy(data, m_connection.input().constData() + m_read, static_cast<size_t>(count));
    m_read += count;
    return count;
}

ssize_t Exchange::write(const char* data, size_t size)
{
    m_answer.append(data, static_cast<qsizetype>(size));
    return static_cast<ssize_t>(size);
}

void Exchange::get_remote_ip_and_port(std::string& ip, int& port) const
{
    ip = m_connection.address().toStdString();
    port = 0;
}

void Exchange::get_local_ip_and_port(std::string& ip, int& port) const
{
    ip.clear();
    port = 0;
}

socket_t Exchange::socket() const
{
    return m_connection.socket();
}
