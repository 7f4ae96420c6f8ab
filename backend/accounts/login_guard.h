#pragma once

#include "backend/accounts/accounts.h"
#include "backend/accounts/throttle.h"

// Login with a memory: failures are counted per account and per address. An account's delay stays
// short, so that nobody is locked out of their own for long by a stranger; an address's grows.
// Thread-safe.
class LoginGuard
{
public:
    explicit LoginGuard(Accounts& accounts);

    Outcome<Session> login(const QString& name, const QString& password, const QString& address);

private:
    Accounts& m_accounts;
    Throttle m_byAccount;
    Throttle m_byAddress;
};
