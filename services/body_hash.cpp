#include "services/body_hash.h"

#include "services/sha256.h"

#include <utility>

namespace {

constexpr qsizetype mostWaiting = 8 * 1024 * 1024;

} // namespace

BodyHash::BodyHash(std::function<void()> advanced)
    : m_advanced(std::move(advanced)), m_hash(std::make_shared<Sha256>())
{
}

BodyHash::~BodyHash() = default;

void BodyHash::add(QByteArrayView piece)
{
    m_waiting += piece.size();
    m_worker.run(
        [hash = m_hash, copy = piece.toByteArray()](const std::stop_token&) {
            hash->add(copy);
            return copy.size();
        },
        [this](qsizetype hashed) {
            m_waiting -= hashed;
            m_advanced();
        });
}

bool BodyHash::isFull() const
{
    return m_waiting >= mostWaiting;
}

QString BodyHash::result()
{
    return m_hash->result();
}
