#pragma once

#include <QByteArray>
#include <QSemaphore>

#include <optional>

// Argon2id. One hash takes 64 MiB and a good part of a tenth of a second, so at most two run at
// once and few may wait: a storm of logins must neither eat the memory nor hold every worker.
// Thread-safe.
class Passwords
{
public:
    explicit Passwords(int waitingAtMost = 8);

    // Nothing when too many are waiting already, or no place is free within five seconds. Throws
    // Fault when there is no memory for it.
    std::optional<QByteArray> hash(const QByteArray& password);
    std::optional<bool> verify(const QByteArray& hash, const QByteArray& password);
    // Takes as long as verify() and is never true: for a name that nobody has.
    std::optional<bool> verifyNobody(const QByteArray& password);

private:
    class Slot;

    QSemaphore m_running{2};
    QSemaphore m_admitted;
    QByteArray m_nobody;
};
