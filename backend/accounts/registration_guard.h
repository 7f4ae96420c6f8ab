#pragma once

#include "backend/accounts/accounts.h"
#include "backend/accounts/hourly_count.h"

// Registration with a memory: how many accounts were made from one address, or one IPv6 network of
// 64 bits, within an hour. Lives in memory; a restart forgets. Thread-safe.
class RegistrationGuard
{
public:
    // 0: as many as they like.
    RegistrationGuard(Accounts& accounts, int perHour);

    Outcome<Session> registerAccount(const QString& name, const QString& password,
                                     const QString& address);

private:
    Accounts& m_accounts;
    HourlyCount m_byAddress;
};
