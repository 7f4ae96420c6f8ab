#include "backend/accounts/passwords.h"

#include "backend/base/outcome.h"

#include <sodium.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int patienceMs = 5000;

QByteArray hashNow(const QByteArray& password)
{
    QByteArray hash(crypto_pwhash_STRBYTES, '\0');
    if (crypto_pwhash_str(
            hash.data(), password.constData(), static_cast<unsigned long long>(password.size()),
            crypto_pwhash_OPSLIMIT_INTERACTIVE, crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0)
        throw Fault(u"out of memory while hashing a password"_s);
    return hash.left(qstrlen(hash.constData()));
}

} // namespace

// Admission first, so that a full queue is known at once; then the wait for one of the two places.
class Passwords::Slot
{
public:
    explicit Slot(Passwords& passwords)
        : m_passwords(passwords), m_admitted(passwords.m_admitted.tryAcquire())
    {
        if (!m_admitted)
            return;
        m_admitted = m_passwords.m_running.tryAcquire(1, patienceMs);
        if (!m_admitted)
            m_passwords.m_admitted.release();
    }
    ~Slot()
    {
        if (!m_admitted)
            return;
        m_passwords.m_running.release();
        m_passwords.m_admitted.release();
    }
    Q_DISABLE_COPY_MOVE(Slot)
    bool admitted() const { return m_admitted; }

private:
    Passwords& m_passwords;
    bool m_admitted;
};

Passwords::Passwords(int waitingAtMost) : m_admitted(2 + waitingAtMost)
{
    if (sodium_init() < 0)
        throw Fault(u"libsodium cannot start"_s);
    m_nobody = hashNow("nobody has this password");
}

std::optional<QByteArray> Passwords::hash(const QByteArray& password)
{
    const Slot slot(*this);
    if (!slot.admitted())
        return {};
    return hashNow(password);
}

std::optional<bool> Passwords::verify(const QByteArray& hash, const QByteArray& password)
{
    const Slot slot(*this);
    if (!slot.admitted())
        return {};
    return crypto_pwhash_str_verify(hash.constData(), password.constData(),
                                    static_cast<unsigned long long>(password.size())) == 0;
}

std::optional<bool> Passwords::verifyNobody(const QByteArray& password)
{
    const auto verified = verify(m_nobody, password);
    if (!verified)
        return {};
    return false;
}
