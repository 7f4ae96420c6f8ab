#include "backend/base/network_address.h"

#include <arpa/inet.h>

#include <QByteArrayList>

#include <array>
#include <cstring>

namespace {

using Bytes = std::array<unsigned char, 16>;

bool read(int family, const QString& text, Bytes& bytes)
{
    return inet_pton(family, text.toLatin1().constData(), bytes.data()) == 1;
}

QString write(int family, const void* bytes)
{
    std::array<char, INET6_ADDRSTRLEN> text = {};
    return QString::fromLatin1(inet_ntop(family, bytes, text.data(), text.size()));
}

} // namespace

namespace network_address {

QString plain(const QString& text)
{
    QString address = text.trimmed();
    if (address.startsWith(u'['))
        address = address.mid(1, address.indexOf(u']') - 1);
    else if (address.count(u':') == 1)
        address = address.left(address.indexOf(u':'));
    Bytes bytes = {};
    if (read(AF_INET, address, bytes))
        return address;
    // A link's name is this machine's own word.
    if (!read(AF_INET6, address.left(address.indexOf(u'%')), bytes))
        return {};
    const Bytes mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    if (std::memcmp(bytes.data(), mapped.data(), 12) == 0)
        return write(AF_INET, bytes.data() + 12);
    return write(AF_INET6, bytes.data());
}

QString lastOf(const QByteArray& list, const QString& otherwise)
{
    const QString last = plain(QString::fromLatin1(list.split(',').last()));
    return last.isEmpty() ? otherwise : last;
}

QString network(const QString& address)
{
    Bytes bytes = {};
    if (!read(AF_INET6, address, bytes))
        return address;
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(bytes.data()), 8).toHex());
}

} // namespace network_address
