#include "services/sha256.h"

#include "services/slices.h"

#include <openssl/evp.h>

#include <QByteArray>

#include <cerrno>

#include <unistd.h>

Sha256::Sha256()
    : m_context(EVP_MD_CTX_new())
    , m_isSound(m_context && EVP_DigestInit_ex(m_context, EVP_sha256(), nullptr) == 1)
{
}

Sha256::~Sha256()
{
    EVP_MD_CTX_free(m_context);
}

void Sha256::add(QByteArrayView data)
{
    m_isSound = m_isSound &&
                EVP_DigestUpdate(m_context, data.data(), static_cast<size_t>(data.size())) == 1;
}

QString Sha256::result()
{
    QByteArray raw(EVP_MAX_MD_SIZE, Qt::Uninitialized);
    unsigned size = 0;
    m_isSound =
        m_isSound &&
        EVP_DigestFinal_ex(m_context, reinterpret_cast<unsigned char*>(raw.data()), &size) == 1;
    return m_isSound ? QString::fromLatin1(raw.first(size).toHex()) : QString();
}

QString Sha256::of(QByteArrayView data)
{
    Sha256 hash;
    hash.add(data);
    return hash.result();
}

QString Sha256::ofFile(int descriptor, const std::stop_token& stop)
{
    Sha256 hash;
    QByteArray slice(sliceBytes, Qt::Uninitialized);
    while (!stop.stop_requested()) {
        const ssize_t size = read(descriptor, slice.data(), static_cast<size_t>(slice.size()));
        if (size == 0)
            return hash.result();
        if (size > 0)
            hash.add(QByteArrayView(slice).first(size));
        else if (errno != EINTR)
            return {};
    }
    return {};
}

bool Sha256::areSame(const QString& one, const QString& other)
{
    return one.compare(other, Qt::CaseInsensitive) == 0;
}
