#include "backend/accounts/registration_guard.h"

#include "backend/base/network_address.h"
#include "backend/base/refusals.h"

#include <QScopeGuard>

using namespace Qt::StringLiterals;

RegistrationGuard::RegistrationGuard(Accounts& accounts, int perHour)
    : m_accounts(accounts), m_byAddress(perHour)
{
}

Outcome<Session> RegistrationGuard::registerAccount(const QString& name, const QString& password,
                                                    const QString& address)
{
    // Counted first, so that several at the same moment do not share the last place.
    const QString network = network_address::network(address);
    if (const int seconds = m_byAddress.tryNow(network); seconds > 0)
        return refusals::tooMany(u"registrations from this address"_s, seconds);
    auto forgive = qScopeGuard([&] { m_byAddress.forgive(network); });
    auto session = m_accounts.registerAccount(name, password);
    if (session)
        forgive.dismiss();
    return session;
}
