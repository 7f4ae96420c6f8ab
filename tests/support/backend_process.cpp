#include "tests/support/backend_process.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTcpSocket>
#include <QUrl>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {

constexpr int patienceMs = 30000;

// Fills the head's fields; false while it is not complete.
bool parseHead(RawReply& reply)
{
    const qsizetype end = reply.whole.indexOf("\r\n\r\n");
    if (end < 0)
        return false;
    const QList<QByteArray> lines = reply.whole.left(end).split('\n');
    reply.status = lines.first().split(' ').value(1).toInt();
    for (const QByteArray& line : lines.mid(1)) {
        const qsizetype colon = line.indexOf(':');
        reply.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
    }
    reply.body = reply.whole.mid(end + 4);
    return true;
}

bool isComplete(RawReply& reply, bool head)
{
    if (!parseHead(reply))
        return false;
    if (head || reply.status == 304)
        return true;
    return reply.headers.contains("content-length") &&
           reply.body.size() >= reply.headers.value("content-length").toLongLong();
}

} // namespace

QString BackendProcess::program()
{
    return QStringLiteral(TESSELLAN_BACKEND_EXE);
}

BackendProcess::~BackendProcess()
{
    stop();
}

bool BackendProcess::start(const QStringList& moreOptions)
{
    QStringList words{u"serve"_s};
    if (!moreOptions.contains(u"--data"_s))
        words += location();
    if (!moreOptions.contains(u"--listen"_s))
        words << u"--listen"_s << u"127.0.0.1:0"_s;
    m_output.clear();
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(program(), words + moreOptions);
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < patienceMs && m_process.state() != QProcess::NotRunning) {
        m_process.waitForReadyRead(1000);
        const QByteArray words2 = output();
        const qsizetype at = words2.indexOf("Listening on ");
        const qsizetype lineEnd = words2.indexOf('\n', std::max<qsizetype>(at, 0));
        if (at < 0 || lineEnd < 0)
            continue;
        m_origin = QString::fromUtf8(words2.mid(at + 13, lineEnd - at - 13));
        return true;
    }
    return false;
}

int BackendProcess::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    m_process.terminate();
    if (!m_process.waitForFinished(patienceMs)) {
        kill();
        return -1;
    }
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

void BackendProcess::kill()
{
    m_process.kill();
    m_process.waitForFinished(patienceMs);
}

quint16 BackendProcess::port() const
{
    return static_cast<quint16>(QUrl(m_origin).port());
}

QByteArray BackendProcess::output()
{
    m_output += m_process.readAll();
    return m_output;
}

BackendProcess::Run BackendProcess::command(const QStringList& words, const QByteArray& input) const
{
    return runProgram(words + location(), input);
}

bool BackendProcess::isOnPostgres()
{
    return qEnvironmentVariableIsSet("TESSELLAN_TEST_POSTGRES");
}

QString BackendProcess::databaseUrl() const
{
    const QString server = qEnvironmentVariable("TESSELLAN_TEST_POSTGRES");
    if (m_databaseName.isEmpty()) {
        m_databaseName = u"t"_s + QUuid::createUuid().toString(QUuid::Id128);
        const int made = QProcess::execute(
            u"psql"_s, {u"-q"_s, u"-d"_s, QString(server + "/postgres"_L1), u"-c"_s,
                        QString(u"CREATE DATABASE "_s + m_databaseName)});
        if (made != 0)
            qFatal("psql could not make a database");
    }
    return server + u'/' + m_databaseName;
}

QStringList BackendProcess::location() const
{
    QStringList words{u"--data"_s, data()};
    if (isOnPostgres())
        words << u"--database"_s << databaseUrl();
    return words;
}

QString BackendProcess::databaseLocation() const
{
    return isOnPostgres() ? databaseUrl() : QString(data() + "/tessellan.sqlite"_L1);
}

bool BackendProcess::runSql(const QString& sql) const
{
    if (isOnPostgres())
        return QProcess::execute(u"psql"_s, {u"-q"_s, u"-d"_s, databaseUrl(), u"-c"_s, sql}) == 0;
    bool ran = false;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"runSql"_s);
        database.setDatabaseName(databaseLocation());
        ran = database.open() && QSqlQuery(database).exec(sql);
    }
    QSqlDatabase::removeDatabase(u"runSql"_s);
    return ran;
}

BackendProcess::Run BackendProcess::runProgram(const QStringList& words, const QByteArray& input)
{
    QProcess process;
    process.start(program(), words);
    process.write(input);
    process.closeWriteChannel();
    Run run;
    if (process.waitForFinished(patienceMs * 2) && process.exitStatus() == QProcess::NormalExit)
        run.exitCode = process.exitCode();
    run.output = process.readAllStandardOutput();
    run.errors = process.readAllStandardError();
    return run;
}

QJsonObject RawReply::json() const
{
    return QJsonDocument::fromJson(body).object();
}

QString RawReply::error() const
{
    return json().value(u"error"_s).toString();
}

namespace raw_http {

RawReply send(quint16 port, const QByteArray& bytes, int timeoutMs)
{
    QTcpSocket socket;
    socket.connectToHost(u"127.0.0.1"_s, port);
    RawReply reply;
    if (!socket.waitForConnected(timeoutMs))
        return reply;
    socket.write(bytes);
    QElapsedTimer timer;
    timer.start();
    while (!isComplete(reply, bytes.startsWith("HEAD ")) && timer.elapsed() < timeoutMs) {
        const bool more = socket.waitForReadyRead(100);
        reply.whole += socket.readAll();
        if (!more && socket.state() != QAbstractSocket::ConnectedState) {
            reply.closed = true;
            parseHead(reply);
            break;
        }
    }
    return reply;
}

RawReply get(quint16 port, const QByteArray& path, const Headers& headers)
{
    QByteArray request = "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n";
    for (const auto& [name, value] : headers)
        request += name + ": " + value + "\r\n";
    return send(port, request + "\r\n");
}

RawReply post(quint16 port, const QByteArray& path, const QByteArray& contentType,
              const QByteArray& body, const Headers& headers)
{
    QByteArray request = "POST " + path + " HTTP/1.1\r\nHost: localhost\r\n";
    if (!contentType.isEmpty())
        request += "Content-Type: " + contentType + "\r\n";
    request += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    for (const auto& [name, value] : headers)
        request += name + ": " + value + "\r\n";
    return send(port, request + "\r\n" + body);
}

RawReply postJson(quint16 port, const QByteArray& path, const QJsonObject& object,
                  const QByteArray& token)
{
    return post(port, path, "application/json",
                QJsonDocument(object).toJson(QJsonDocument::Compact),
                token.isEmpty() ? Headers() : Headers{bearer(token)});
}

std::pair<QByteArray, QByteArray> bearer(const QByteArray& token)
{
    return {"Authorization", "Bearer " + token};
}

} // namespace raw_http
