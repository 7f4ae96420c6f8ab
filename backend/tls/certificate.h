#pragma once

#include <QMutex>
#include <QString>

#include <boost/asio/ssl/context.hpp>

#include <memory>

// The certificate that a server shows, from PEM files. Thread-safe.
class Certificate
{
public:
    using Context = std::shared_ptr<boost::asio::ssl::context>;

    // Throws Fault when they cannot be used.
    Certificate(QString chain, QString key);
    // Reads the files anew, for whoever connects from now on. Throws Fault, and keeps what it had.
    void reload();

    // TLS 1.2 and 1.3 with authenticated ciphers alone.
    Context context() const;

private:
    Context read() const;

    const QString m_chain;
    const QString m_key;
    mutable QMutex m_mutex;
    Context m_context;
};
