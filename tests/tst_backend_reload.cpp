#include "tests/support/backend_process.h"
#include "tests/support/files.h"

#include <QDir>
#include <QFile>
#include <QSslCertificate>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QTest>

#include <signal.h>
#include <sys/types.h>

using namespace Qt::StringLiterals;

// What SIGHUP reads anew: the certificate with its key, and the access log's name.
class TestBackendReload : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void showsNewCertificate();
    void keepsCertificateThatCannotBeReplaced();
    void reopensAccessLog();
    void goesOnWithoutAccessLog();

private:
    static void reload(const BackendProcess& backend)
    {
        QCOMPARE(::kill(static_cast<pid_t>(backend.processId()), SIGHUP), 0);
    }
};

namespace {

QStringList filesOf(const QTemporaryDir& directory)
{
    return {directory.filePath(u"certificate.pem"_s), directory.filePath(u"key.pem"_s)};
}

bool makeCertificate(const QTemporaryDir& directory, const QString& name)
{
    const QStringList files = filesOf(directory);
    return QProcess::execute(u"openssl"_s,
                             {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s,
                              u"-days"_s, u"2"_s, u"-subj"_s, "/CN="_L1 + name, u"-out"_s, files[0],
                              u"-keyout"_s, files[1]}) == 0;
}

// Connects; the name that the server shows.
QString shownTo(QSslSocket& client, quint16 port)
{
    client.setPeerVerifyMode(QSslSocket::VerifyNone);
    client.connectToHostEncrypted(u"127.0.0.1"_s, port);
    if (!client.waitForEncrypted(5000))
        return client.errorString();
    return client.peerCertificate().subjectInfo(QSslCertificate::CommonName).value(0);
}

QString shown(quint16 port)
{
    QSslSocket client;
    return shownTo(client, port);
}

// Whether it still gets an answer.
bool isServed(QSslSocket& client)
{
    client.write("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n");
    QByteArray answer;
    while (!answer.contains("}") && client.waitForReadyRead(5000))
        answer += client.readAll();
    return answer.startsWith("HTTP/1.1 200 ");
}

} // namespace

void TestBackendReload::showsNewCertificate()
{
    const QTemporaryDir directory;
    const QStringList files = filesOf(directory);
    QVERIFY(makeCertificate(directory, u"first.example"_s));
    BackendProcess backend;
    QVERIFY(backend.start({u"--tls-certificate"_s, files[0], u"--tls-key"_s, files[1]}));
    QSslSocket early;
    QCOMPARE(shownTo(early, backend.port()), u"first.example"_s);

    for (const QString& name : {u"second.example"_s, u"third.example"_s}) {
        QVERIFY(makeCertificate(directory, name));
        reload(backend);
        QTRY_COMPARE(shown(backend.port()), name);
        // Who was connected before notices nothing.
        QVERIFY(isServed(early));
    }
    QCOMPARE(backend.stop(), 0);
}

void TestBackendReload::keepsCertificateThatCannotBeReplaced()
{
    const QTemporaryDir directory;
    const QStringList files = filesOf(directory);
    QVERIFY(makeCertificate(directory, u"first.example"_s));
    BackendProcess backend;
    QVERIFY(backend.start({u"--tls-certificate"_s, files[0], u"--tls-key"_s, files[1]}));
    // A key that belongs to no certificate, as in the middle of a renewal; then none.
    QVERIFY(QFile::rename(files[0], files[0] + ".kept"_L1));
    QVERIFY(makeCertificate(directory, u"second.example"_s));
    QVERIFY(QFile::remove(files[0]));
    QVERIFY(QFile::rename(files[0] + ".kept"_L1, files[0]));
    reload(backend);
    QTRY_VERIFY(backend.output().contains(QByteArray("cannot use the key " + files[1].toUtf8())));
    QCOMPARE(shown(backend.port()), u"first.example"_s);
    QVERIFY(QFile::remove(files[0]));
    reload(backend);
    QTRY_VERIFY(
        backend.output().contains(QByteArray("cannot use the certificate " + files[0].toUtf8())));
    QCOMPARE(shown(backend.port()), u"first.example"_s);
}

void TestBackendReload::reopensAccessLog()
{
    const QTemporaryDir directory;
    const QString log = directory.filePath(u"access.log"_s);
    BackendProcess backend;
    QVERIFY(backend.start({u"--access-log"_s, log}));
    QCOMPARE(raw_http::get(backend.port(), "/files/early").status, 404);
    QVERIFY(QFile::rename(log, log + ".1"_L1));
    QCOMPARE(raw_http::get(backend.port(), "/files/moved").status, 404);
    reload(backend);
    QTRY_VERIFY(QFile::exists(log));
    QCOMPARE(raw_http::get(backend.port(), "/files/late").status, 404);
    const auto has = [](const QString& file, const QByteArray& path) {
        return contentOf(file).contains(QByteArray("\"path\":\"" + path + '"'));
    };
    QTRY_VERIFY(has(log, "/files/late"));
    QVERIFY(has(log + ".1"_L1, "/files/early"));
    QVERIFY(has(log + ".1"_L1, "/files/moved"));
    QVERIFY(!has(log + ".1"_L1, "/files/late"));
}

void TestBackendReload::goesOnWithoutAccessLog()
{
    const QTemporaryDir directory;
    const QString log = directory.filePath(u"access.log"_s);
    BackendProcess backend;
    QVERIFY(backend.start({u"--access-log"_s, log}));
    QVERIFY(QFile::rename(log, log + ".1"_L1));
    QVERIFY(QDir().mkdir(log));
    reload(backend);
    QTRY_VERIFY(backend.output().contains(QByteArray("cannot write " + log.toUtf8())));
    QCOMPARE(raw_http::get(backend.port(), "/files/late").status, 404);
    QTRY_VERIFY(contentOf(log + ".1"_L1).contains("/files/late"));
    // No file was asked for: nothing to do, and no reason to end.
    BackendProcess plain;
    QVERIFY(plain.start());
    reload(plain);
    QCOMPARE(raw_http::get(plain.port(), "/healthz").status, 200);
    QCOMPARE(plain.stop(), 0);
}

QTEST_GUILESS_MAIN(TestBackendReload)
#include "tst_backend_reload.moc"
