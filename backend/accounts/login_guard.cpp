#include "backend/accounts/login_guard.h"

#include "backend/base/network_address.h"
#include "backend/base/refusals.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

Refusal tooManyFailures(int seconds)
{
    return refusals::tooMany(u"failed logins"_s, seconds);
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
    const QString network = network_address::network(address);
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
