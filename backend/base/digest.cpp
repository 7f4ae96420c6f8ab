#include "backend/base/digest.h"

#include <openssl/evp.h>

#include <algorithm>

Digest::Digest() : m_context(EVP_MD_CTX_new())
{
    EVP_DigestInit_ex(m_context, EVP_sha256(), nullptr);
}

Digest::~Digest()
{
    EVP_MD_CTX_free(m_context);
}

void Digest::add(const char* data, qint64 size)
{
    EVP_DigestUpdate(m_context, data, static_cast<size_t>(size));
}

QByteArray Digest::hex()
{
    QByteArray raw(32, '\0');
    EVP_DigestFinal_ex(m_context, reinterpret_cast<unsigned char*>(raw.data()), nullptr);
    return raw.toHex();
}

QByteArray Digest::of(const QByteArray& data)
{
    Digest digest;
    digest.add(data.constData(), data.size());
    return digest.hex();
}

bool Digest::isDigest(const QByteArray& text)
{
    return text.size() == 64 && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}
