#pragma once

#include <QByteArray>
#include <QtGlobal>

struct evp_md_ctx_st;

// SHA-256 piece by piece, as 64 lower-case hexadecimal characters. OpenSSL's is about ten times as
// fast as Qt's, which shows on jars and runtimes.
class Digest
{
public:
    Digest();
    ~Digest();
    Q_DISABLE_COPY_MOVE(Digest)

    void add(const char* data, qint64 size);
    QByteArray hex();

    static QByteArray of(const QByteArray& data);
    // Whether a text has the form of a digest; what comes from outside is asked before it becomes
    // part of a path.
    static bool isDigest(const QByteArray& text);

private:
    evp_md_ctx_st* m_context;
};
