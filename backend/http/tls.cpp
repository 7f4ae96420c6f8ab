#include "backend/http/tls.h"

#include "backend/base/outcome.h"

using namespace Qt::StringLiterals;
using boost::asio::ssl::context;

context http::secureContext(const QString& certificate, const QString& key)
{
    context made(context::tls_server);
    SSL_CTX* handle = made.native_handle();
    SSL_CTX_set_min_proto_version(handle, TLS1_2_VERSION);
    SSL_CTX_set_options(handle, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_mode(handle, SSL_MODE_RELEASE_BUFFERS); // Who waits holds none.
    SSL_CTX_set_cipher_list(handle, "ECDHE+AESGCM:ECDHE+CHACHA20");
    QString what = u"certificate "_s + certificate;
    try {
        made.use_certificate_chain_file(certificate.toStdString());
        what = u"key "_s + key;
        made.use_private_key_file(key.toStdString(), context::pem);
    } catch (const boost::system::system_error& fault) {
        throw Fault(u"cannot use the "_s + what + u": "_s + QString::fromUtf8(fault.what()));
    }
    return made;
}
