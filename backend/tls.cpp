#include "backend/tls.h"

#include "backend/outcome.h"

#include <QFile>

#include <openssl/err.h>
#include <openssl/ssl.h>

using namespace Qt::StringLiterals;

namespace {

Fault tlsFault(const QString& what)
{
    char text[256];
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    ERR_clear_error();
    return Fault(what + u": "_s + QString::fromLatin1(text));
}

} // namespace

void TlsSessionDeleter::operator()(ssl_st* session) const
{
    SSL_free(session);
}

Tls::Tls(const QString& certificateFile, const QString& keyFile)
    : m_context(SSL_CTX_new(TLS_server_method()))
{
    SSL_CTX_set_min_proto_version(m_context, TLS1_2_VERSION);
    SSL_CTX_set_options(m_context, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    // A write may be tried again from a buffer that has moved in the meantime.
    SSL_CTX_set_mode(m_context,
                     SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    const QByteArray certificate = QFile::encodeName(certificateFile);
    const QByteArray key = QFile::encodeName(keyFile);
    if (SSL_CTX_use_certificate_chain_file(m_context, certificate.constData()) != 1)
        throw tlsFault(u"cannot use the certificate "_s + certificateFile);
    if (SSL_CTX_use_PrivateKey_file(m_context, key.constData(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(m_context) != 1)
        throw tlsFault(u"cannot use the key "_s + keyFile);
}

Tls::~Tls()
{
    SSL_CTX_free(m_context);
}

TlsSession Tls::accept(int socket) const
{
    TlsSession session(SSL_new(m_context));
    SSL_set_fd(session.get(), socket);
    SSL_set_accept_state(session.get());
    return session;
}
