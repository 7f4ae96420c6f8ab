#include "backend/tls/certificate.h"

#include "backend/base/outcome.h"

#include <QMutexLocker>

using namespace Qt::StringLiterals;
namespace ssl = boost::asio::ssl;

Certificate::Certificate(QString chain, QString key)
    : m_chain(std::move(chain)), m_key(std::move(key)), m_context(read())
{
}

void Certificate::reload()
{
    Context context = read();
    const QMutexLocker lock(&m_mutex);
    m_context = std::move(context);
}

Certificate::Context Certificate::context() const
{
    const QMutexLocker lock(&m_mutex);
    return m_context;
}

Certificate::Context Certificate::read() const
{
    auto made = std::make_shared<ssl::context>(ssl::context::tls_server);
    SSL_CTX* handle = made->native_handle();
    SSL_CTX_set_min_proto_version(handle, TLS1_2_VERSION);
    SSL_CTX_set_options(handle, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_mode(handle, SSL_MODE_RELEASE_BUFFERS); // Who waits holds none.
    SSL_CTX_set_cipher_list(handle, "ECDHE+AESGCM:ECDHE+CHACHA20");
    QString what = u"certificate "_s + m_chain;
    try {
        made->use_certificate_chain_file(m_chain.toStdString());
        what = u"key "_s + m_key;
        made->use_private_key_file(m_key.toStdString(), ssl::context::pem);
    } catch (const boost::system::system_error& fault) {
        throw Fault(u"cannot use the "_s + what + u": "_s + QString::fromUtf8(fault.what()));
    }
    return made;
}
