#pragma once

#include <QString>

#include <memory>

struct ssl_ctx_st;
struct ssl_st;

struct TlsSessionDeleter
{
    void operator()(ssl_st* session) const;
};
using TlsSession = std::unique_ptr<ssl_st, TlsSessionDeleter>;

// A certificate chain and its key, for TLS 1.2 and later. Throws Fault when a file cannot be read
// or the two do not belong together.
class Tls
{
public:
    Tls(const QString& certificateFile, const QString& keyFile);
    ~Tls();
    Q_DISABLE_COPY_MOVE(Tls)

    // The server's side of one connection; the handshake happens with its first bytes.
    TlsSession accept(int socket) const;

private:
    ssl_ctx_st* m_context;
};
