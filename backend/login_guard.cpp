#include "backend/login_guard.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

Refusal tooManyFailures(int seconds)
{
    const QString when = seconds == 1   ? u"1 second"_s
                         : seconds < 60 ? u"%1 seconds"_s.arg(seconds)
                         : seconds < 90 ? u"1 minute"_s
                                        : u"%1 minutes"_s.arg((seconds + 30) / 60);
    return {429, u"Too many failed logins. Try again in %1."_s.arg(when), {}, seconds};
}

// Whoever has one IPv6 address has 2^64 of them: they count as one.
QString networkOf(const QString& address)
{
    std::array<unsigned char, 16> bytes = {};
    if (inet_pton(AF_INET6, address.toLatin1().constData(), bytes.data()) != 1)
        return address;
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(bytes.data()), 8).toHex());
}

} // namespace

LoginGuard::LoginGuard(Accounts& accounts)
    : m_accounts(accounts), m_byAccount({5, 1min}), m_byAddress({20, 15min})
{
}

Outcome<Session> LoginGuard::login(const QString& name, const QString& password,
                                   const QString& address)
{
    // Names that nobody has are counted as well: the answer must not tell them apart.
    const QString account = name.left(32).toLower();
    const QString network = networkOf(address);
    if (const int seconds = m_byAddress.tryNow(network); seconds > 0)
        return tooManyFailures(seconds);
    if (const int seconds = m_byAccount.tryNow(account); seconds > 0) {
        m_byAddress.forgive(network);
        return tooManyFailures(seconds);
    }
    auto session = m_accounts.login(name, password);
    if (session) {
        m_byAccount.forget(account);
        m_byAddress.forgive(network);
    } else if (session.refusal().status != 401) {
        m_byAccount.forgive(account);
        m_byAddress.forgive(network);
    }
    return session;
}
