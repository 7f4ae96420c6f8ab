#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSslConfiguration>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

class QTcpServer;
class QTcpSocket;

// A certificate authority that exists for one test run. Made by the openssl program.
class TestAuthority
{
public:
    TestAuthority();

    // For a server that may call itself by these host names.
    QSslConfiguration serverFor(const QStringList& hosts) const;
    // Makes the whole process trust this authority, and no other. Call before the first request.
    void trust() const;

private:
    QString path(const QString& name) const { return m_directory.filePath(name); }

    QTemporaryDir m_directory;
};

// A web proxy on a loopback port of its own. It leads each CONNECT to the loopback port that the
// test chose for that host, so that a fixed https address is exercised unchanged, and refuses
// everything else. While it exists it is the proxy of the whole process (which Qt skips for
// loopback targets).
class TunnelProxy : public QObject
{
    Q_OBJECT

public:
    explicit TunnelProxy(QObject* parent = nullptr);
    ~TunnelProxy() override;

    void lead(const QByteArray& hostAndPort, quint16 loopbackPort);
    // The first line of every request, refused ones included: "CONNECT host:443 HTTP/1.1".
    const QList<QByteArray>& requestLines() const { return m_requestLines; }

private:
    void accept();
    void openTunnel(QTcpSocket* client);

    QTcpServer* m_server;
    QHash<QByteArray, quint16> m_ports;
    QList<QByteArray> m_requestLines;
};
