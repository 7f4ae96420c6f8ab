#include "tests/support/tls.h"

#include "tests/support/files.h"

#include <QNetworkProxy>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>
#include <QTcpServer>
#include <QTcpSocket>

namespace {

void openssl(const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("openssl"), arguments);
    if (!process.waitForFinished() || process.exitCode() != 0)
        qFatal("openssl failed: %s", process.readAll().constData());
}

// A fresh key and a certificate for it, self-signed unless `more` names an issuer.
QStringList newCertificate(const QString& subject, const QString& key, const QString& certificate,
                           const QStringList& more)
{
    return QStringList{QStringLiteral("req"),
                       QStringLiteral("-x509"),
                       QStringLiteral("-newkey"),
                       QStringLiteral("ec"),
                       QStringLiteral("-pkeyopt"),
                       QStringLiteral("ec_paramgen_curve:P-256"),
                       QStringLiteral("-nodes"),
                       QStringLiteral("-days"),
                       QStringLiteral("2"),
                       QStringLiteral("-subj"),
                       subject,
                       QStringLiteral("-keyout"),
                       key,
                       QStringLiteral("-out"),
                       certificate} +
           more;
}

void pipe(QTcpSocket* from, QTcpSocket* to)
{
    QObject::connect(from, &QTcpSocket::readyRead, to, [from, to] { to->write(from->readAll()); });
    QObject::connect(from, &QTcpSocket::disconnected, to, [to] { to->disconnectFromHost(); });
}

} // namespace

TestAuthority::TestAuthority()
{
    openssl(newCertificate(QStringLiteral("/CN=Authority of one test run"),
                           path(QStringLiteral("ca.key")), path(QStringLiteral("ca.pem")), {}));
}

QSslConfiguration TestAuthority::serverFor(const QStringList& hosts) const
{
    const QString key = path(QStringLiteral("server.key"));
    const QString certificate = path(QStringLiteral("server.pem"));
    const QString names = QStringLiteral("subjectAltName=IP:127.0.0.1,DNS:") + hosts.join(u",DNS:");
    openssl(newCertificate(QStringLiteral("/CN=Test server"), key, certificate,
                           {QStringLiteral("-CA"), path(QStringLiteral("ca.pem")),
                            QStringLiteral("-CAkey"), path(QStringLiteral("ca.key")),
                            QStringLiteral("-addext"), names, QStringLiteral("-addext"),
                            QStringLiteral("basicConstraints=critical,CA:FALSE")}));
    QSslConfiguration configuration;
    configuration.setLocalCertificate(QSslCertificate(contentOf(certificate)));
    configuration.setPrivateKey(QSslKey(contentOf(key), QSsl::Ec));
    return configuration;
}

void TestAuthority::trust() const
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setCaCertificates(
        QSslCertificate::fromPath(path(QStringLiteral("ca.pem")), QSsl::Pem));
    QSslConfiguration::setDefaultConfiguration(configuration);
}

TunnelProxy::TunnelProxy(QObject* parent) : QObject(parent), m_server(new QTcpServer(this))
{
    if (!m_server->listen(QHostAddress::LocalHost))
        qFatal("The test proxy cannot listen: %s", qPrintable(m_server->errorString()));
    connect(m_server, &QTcpServer::pendingConnectionAvailable, this, &TunnelProxy::accept);
    QNetworkProxy::setApplicationProxy(QNetworkProxy(
        QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), m_server->serverPort()));
}

TunnelProxy::~TunnelProxy()
{
    // A successor may have taken over already.
    if (QNetworkProxy::applicationProxy().port() == m_server->serverPort())
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
}

void TunnelProxy::lead(const QByteArray& hostAndPort, quint16 loopbackPort)
{
    m_ports[hostAndPort] = loopbackPort;
}

void TunnelProxy::accept()
{
    while (QTcpSocket* client = m_server->nextPendingConnection()) {
        connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
        connect(client, &QTcpSocket::readyRead, this, [this, client] { openTunnel(client); });
    }
}

void TunnelProxy::openTunnel(QTcpSocket* client)
{
    const QByteArray head = client->peek(64 * 1024);
    if (!head.contains("\r\n\r\n"))
        return;
    client->readAll();
    client->disconnect(this);
    m_requestLines.append(head.left(head.indexOf("\r\n")));
    const QByteArrayList words = m_requestLines.constLast().split(' ');
    const quint16 port = words.first() == "CONNECT" ? m_ports.value(words.value(1)) : 0;
    if (port == 0) {
        client->write("HTTP/1.1 502 No way\r\nContent-Length: 0\r\n\r\n");
        client->disconnectFromHost();
        return;
    }
    auto* target = new QTcpSocket(client);
    target->connectToHost(QHostAddress::LocalHost, port);
    client->write("HTTP/1.1 200 Connected\r\n\r\n");
    pipe(client, target);
    pipe(target, client);
}
