#pragma once

#include <QByteArrayView>
#include <QString>
#include <QtGlobal>

#include <stop_token>

struct evp_md_ctx_st;

// SHA-256 of what comes piece by piece: the one place that computes digests, and the one that
// compares them. OpenSSL's is ten times as fast as Qt's. Any thread, one at a time.
class Sha256
{
public:
    Sha256();
    ~Sha256();
    Q_DISABLE_COPY_MOVE(Sha256)

    void add(QByteArrayView data);
    // Of all that was added, as 64 lower-case hexadecimal characters; empty when it could not be
    // computed. Call once.
    QString result();

    static QString of(QByteArrayView data);
    // Of an open file, from where it stands to its end. Empty when it cannot be read, or when it
    // was stopped, which takes a few milliseconds.
    static QString ofFile(int descriptor, const std::stop_token& stop = {});
    // Manifests give digests in any letter case.
    static bool areSame(const QString& one, const QString& other);

private:
    evp_md_ctx_st* m_context;
    bool m_isSound;
};
