#include "tests/support/backend_process.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

// Starting, stopping and the command line itself.
class TestBackendServe : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listensOnLoopbackByDefault();
    void refusesBusyPort();
    void stopsOnSigterm();
    void keepsEverythingAcrossRestart();
    void refusesWrongUsage_data();
    void refusesWrongUsage();
    void explainsItself_data();
    void explainsItself();
    void refusesUnusableDataDirectory();
    void answersHealth();
    void speaksTls();
    void refusesUnusableCertificate();
    void leaksNoSecrets();
};

void TestBackendServe::listensOnLoopbackByDefault()
{
    BackendProcess backend;
    QVERIFY2(backend.start(), backend.output().constData());
    QVERIFY(backend.origin().startsWith(u"http://127.0.0.1:"_s));
    QVERIFY(backend.port() > 0);
    const RawReply manifest = raw_http::get(backend.port(), "/manifest.json");
    QCOMPARE(manifest.status, 200);
    QCOMPARE(manifest.body, R"({"news":[],"versions":[]})");
}

void TestBackendServe::refusesBusyPort()
{
    QTcpServer holder;
    QVERIFY(holder.listen(QHostAddress::LocalHost));
    BackendProcess backend;
    const QString address = u"127.0.0.1:%1"_s.arg(holder.serverPort());
    const auto run = backend.command({u"serve"_s, u"--listen"_s, address});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains(QByteArray("error: cannot listen on " + address.toUtf8())),
             run.errors.constData());
    QVERIFY(run.errors.contains("in use"));

    // A second server of our own does not share the port either.
    BackendProcess first;
    QVERIFY(first.start());
    const auto second =
        backend.command({u"serve"_s, u"--listen"_s, u"127.0.0.1:%1"_s.arg(first.port())});
    QCOMPARE(second.exitCode, 1);
}

void TestBackendServe::stopsOnSigterm()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    const quint16 port = backend.port();
    QCOMPARE(raw_http::get(port, "/manifest.json").status, 200);
    QCOMPARE(backend.stop(), 0);
    QCOMPARE(raw_http::get(port, "/manifest.json").status, 0);
}

void TestBackendServe::keepsEverythingAcrossRestart()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    const QJsonObject who{{u"username"_s, u"Durable"_s}, {u"password"_s, u"correct horse"_s}};
    const RawReply created = raw_http::postJson(backend.port(), "/auth/register", who);
    QCOMPARE(created.status, 200);
    QCOMPARE(backend.command({u"publish"_s, u"news"_s, u"--title"_s, u"Kept"_s}).exitCode, 0);
    QCOMPARE(backend.stop(), 0);

    QVERIFY(backend.start());
    const QByteArray token = created.json().value(u"token"_s).toString().toLatin1();
    QCOMPARE(raw_http::get(backend.port(), "/auth/validate", {raw_http::bearer(token)}).status,
             200);
    QVERIFY(raw_http::get(backend.port(), "/manifest.json").body.contains("Kept"));
    // Nothing of it is for others on the machine.
    const auto others = QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;
    if (BackendProcess::isOnPostgres())
        return;
    const QString database = backend.data() + u"/tessellan.sqlite"_s;
    QVERIFY(QFileInfo::exists(database));
    QVERIFY(!(QFileInfo(database).permissions() & others));
}

void TestBackendServe::refusesWrongUsage_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char* name, const QString& line, const char* message) {
        QTest::newRow(name) << line.split(u' ', Qt::SkipEmptyParts) << QByteArray(message);
    };
    row("nothing", u""_s, "A command is missing.");
    row("unknown command", u"frobnicate"_s, "There is no command \"frobnicate\".");
    row("no data directory", u"serve"_s, "--data is missing.");
    row("unknown option", u"serve --data d --bogus"_s, "bogus");
    row("stray word", u"serve --data d now"_s, "\"now\" is one word too many.");
    row("listen without port", u"serve --data d --listen 127.0.0.1"_s, "--listen must be");
    row("listen with a bad port", u"serve --data d --listen 127.0.0.1:x"_s, "--listen must be");
    row("port too high", u"serve --data d --listen 127.0.0.1:65536"_s, "--listen must be");
    row("certificate without key", u"serve --data d --tls-certificate c"_s,
        "--tls-certificate and --tls-key go together.");
    row("unknown database", u"serve --data d --database mysql://x"_s,
        "--database must begin with postgresql://");
    row("all addresses, no origin", u"serve --data d --listen 0.0.0.0:0"_s,
        "--public-origin is needed");
    row("origin without scheme", u"serve --data d --public-origin play.example"_s,
        "--public-origin must be");
    row("origin of another scheme", u"serve --data d --public-origin ftp://play.example"_s,
        "--public-origin must be");
    row("publish nothing", u"publish"_s, "After \"publish\" comes one of");
    row("version without id", u"publish version --data d --file x"_s, "--id is missing.");
    row("version without file", u"publish version --data d --id x"_s, "--file is missing.");
    row("news without title", u"publish news --data d"_s, "--title is missing.");
    row("runtime without file", u"publish runtime --data d"_s, "FILE is missing");
    row("launcher of no platform", u"publish launcher --data d --file x --platform beos"_s,
        "--platform must be");
    row("launcher without version", u"publish launcher --data d --file x"_s,
        "--version is missing.");
}

void TestBackendServe::refusesWrongUsage()
{
    QFETCH(QStringList, words);
    QFETCH(QByteArray, message);
    const auto run = BackendProcess::runProgram(words);
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.errors.contains(message), run.errors.constData());
    QVERIFY2(run.errors.contains("--help"), run.errors.constData());
    QVERIFY(run.output.isEmpty());
    QVERIFY(!QFileInfo::exists(u"d"_s));
}

void TestBackendServe::explainsItself_data()
{
    QTest::addColumn<QStringList>("words");
    for (const char* line : {"",
                             "serve",
                             "publish",
                             "publish version",
                             "publish news",
                             "publish launcher",
                             "publish runtime",
                             "withdraw",
                             "withdraw version",
                             "withdraw news",
                             "withdraw launcher",
                             "withdraw runtime",
                             "list",
                             "accounts",
                             "accounts list",
                             "accounts disable",
                             "accounts enable",
                             "accounts reset-password",
                             "check",
                             "backup"}) {
        QTest::newRow(*line ? line : "the program")
            << QString::fromLatin1(line).split(u' ', Qt::SkipEmptyParts);
    }
}

void TestBackendServe::explainsItself()
{
    QFETCH(QStringList, words);
    const auto run = BackendProcess::runProgram(words + QStringList{u"--help"_s});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.output.startsWith("Usage: tessellan-backend"), run.output.constData());
    QVERIFY(run.errors.isEmpty());
}

void TestBackendServe::refusesUnusableDataDirectory()
{
    QTemporaryDir directory;
    QFile file(directory.filePath(u"file"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    const auto run = BackendProcess::runProgram(
        {u"serve"_s, u"--data"_s, file.fileName(), u"--listen"_s, u"127.0.0.1:0"_s});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.startsWith("error: cannot write "), run.errors.constData());
}

void TestBackendServe::answersHealth()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    QCOMPARE(raw_http::get(backend.port(), "/healthz").body, R"({"status":"ok"})");
    QVERIFY(backend.runSql(u"DROP TABLE catalogue"_s));
    // A busy machine may be told at first what was found before.
    RawReply ill;
    QTRY_COMPARE((ill = raw_http::get(backend.port(), "/healthz")).status, 503);
    QCOMPARE(ill.error(), u"The database does not answer."_s);
    // Whatever fails inside stays inside.
    const RawReply manifest = raw_http::get(backend.port(), "/manifest.json");
    QCOMPARE(manifest.status, 500);
    QVERIFY(!manifest.whole.contains("catalogue"));
    QTRY_VERIFY(backend.output().contains("catalogue"));
}

void TestBackendServe::speaksTls()
{
    QTemporaryDir directory;
    const QString key = directory.filePath(u"key.pem"_s);
    const QString certificate = directory.filePath(u"certificate.pem"_s);
    QCOMPARE(QProcess::execute(u"openssl"_s,
                               {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s,
                                u"-keyout"_s, key, u"-out"_s, certificate, u"-days"_s, u"2"_s,
                                u"-subj"_s, u"/CN=localhost"_s, u"-addext"_s,
                                u"subjectAltName=DNS:localhost,IP:127.0.0.1"_s}),
             0);
    BackendProcess backend;
    QVERIFY2(backend.start({u"--tls-certificate"_s, certificate, u"--tls-key"_s, key}),
             backend.output().constData());
    QVERIFY(backend.origin().startsWith(u"https://"_s));
    QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
    trusting.setCaCertificates(QSslCertificate::fromPath(certificate));

    // A file that is larger than the socket's buffers, and many requests on one connection.
    const QByteArray content = QByteArray("0123456789").repeated(400'000);
    QFile build(directory.filePath(u"build"_s));
    QVERIFY(build.open(QIODevice::WriteOnly));
    build.write(content);
    build.close();
    QCOMPARE(backend
                 .command({u"publish"_s, u"launcher"_s, u"--version"_s, u"2"_s, u"--file"_s,
                           build.fileName()})
                 .exitCode,
             0);
    QNetworkAccessManager network;
    const auto fetch = [&](const QString& url) {
        QNetworkRequest request{QUrl(url)};
        request.setSslConfiguration(trusting);
        QNetworkReply* reply = network.get(request);
        QSignalSpy finished(reply, &QNetworkReply::finished);
        return finished.wait(20000) && reply->error() == QNetworkReply::NoError ? reply->readAll()
                                                                                : QByteArray();
    };
    for (int i = 0; i < 5; ++i) {
        const QJsonDocument manifest =
            QJsonDocument::fromJson(fetch(QString(backend.origin() + "/manifest.json"_L1)));
        QVERIFY(manifest.isObject());
        QCOMPARE(fetch(manifest[u"launcherLinux"_s][u"url"_s].toString()), content);
    }
    // Plain HTTP gets nothing there.
    QCOMPARE(raw_http::get(backend.port(), "/manifest.json").status, 0);
    QVERIFY(!fetch(QString(backend.origin() + "/healthz"_L1)).isEmpty());
}

void TestBackendServe::refusesUnusableCertificate()
{
    const BackendProcess backend;
    const auto run =
        backend.command({u"serve"_s, u"--listen"_s, u"127.0.0.1:0"_s, u"--tls-certificate"_s,
                         u"/nothing/c.pem"_s, u"--tls-key"_s, u"/nothing/k.pem"_s});
    QCOMPARE(run.exitCode, 1);
    QVERIFY(run.errors.startsWith("error: cannot use the certificate /nothing/c.pem"));
}

void TestBackendServe::leaksNoSecrets()
{
    QTemporaryDir directory;
    const QString log = directory.filePath(u"access.log"_s);
    BackendProcess backend;
    QVERIFY(backend.start({u"--access-log"_s, log}));
    const QString password = u"planted-password-7391"_s;
    const QJsonObject who{{u"username"_s, u"Planted"_s}, {u"password"_s, password}};
    const RawReply created = raw_http::postJson(backend.port(), "/auth/register", who);
    const QByteArray token = created.json()[u"token"_s].toString().toLatin1();
    QCOMPARE(token.size(), 64);
    QCOMPARE(raw_http::postJson(backend.port(), "/auth/login", who).status, 200);
    const auto bearer = raw_http::bearer(token);
    QCOMPARE(raw_http::get(backend.port(), "/auth/validate?token=" + token, {bearer}).status, 200);
    QCOMPARE(raw_http::get(backend.port(), "/auth/validate\"\n{", {bearer}).status, 400);
    // Errors that the operator reads, too.
    QVERIFY(backend.runSql(u"ALTER TABLE sessions RENAME TO elsewhere"_s));
    QCOMPARE(raw_http::postJson(backend.port(), "/auth/login", who).status, 500);
    QCOMPARE(raw_http::get(backend.port(), "/auth/validate", {bearer}).status, 500);

    QFile commandLine(u"/proc/%1/cmdline"_s.arg(backend.processId()));
    QFile written(log);
    QVERIFY(commandLine.open(QIODevice::ReadOnly));
    QVERIFY(written.open(QIODevice::ReadOnly));
    QTRY_VERIFY(backend.output().contains("error"));
    const QByteArray lines = written.readAll();
    QVERIFY2(lines.contains(R"("path":"/auth/validate")"), lines.constData());
    const QByteArray shown = lines + backend.output() + commandLine.readAll();
    const QByteArray digest = QCryptographicHash::hash(token, QCryptographicHash::Sha256).toHex();
    for (const QByteArray& secret : {token, digest, password.toLatin1(), QByteArray("argon2")})
        QVERIFY2(!shown.contains(secret), shown.constData());
    // Every line is a JSON object of its own.
    for (const QByteArray& line : lines.trimmed().split('\n'))
        QVERIFY2(QJsonDocument::fromJson(line).isObject(), line.constData());
    if (BackendProcess::isOnPostgres())
        return;
    // The database itself holds neither.
    QByteArray stored;
    for (const QString& suffix : {u""_s, u"-wal"_s}) {
        QFile file(QString(backend.data() + "/tessellan.sqlite"_L1 + suffix));
        if (file.open(QIODevice::ReadOnly))
            stored += file.readAll();
    }
    QVERIFY(stored.contains("Planted"));
    QVERIFY(!stored.contains(token));
    QVERIFY(!stored.contains(password.toLatin1()));
}

QTEST_GUILESS_MAIN(TestBackendServe)
#include "tst_backend_serve.moc"
